// The outcome of an operation that either succeeds or fails with a short text for the user or the
// log. It is a named type, not an empty-means-success optional, so the two can never be confused,
// and it must be looked at: a caller that really does not care says so with `.ignore("why")`.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace kestrow {

class [[nodiscard]] Status {
public:
    static Status success() { return Status(); }
    static Status failure(std::string message) { return Status(std::move(message)); }

    bool ok() const { return !message_.has_value(); }
    bool failed() const { return message_.has_value(); }
    // The failure's text; empty on success.
    const std::string& message() const {
        static const std::string none;
        return message_ ? *message_ : none;
    }

    // For the rare caller that has nothing useful to do with a failure; the reason documents why.
    void ignore(const char* /*why*/) const {}

    bool operator==(const Status&) const = default;

private:
    Status() = default;
    explicit Status(std::string message) : message_(std::move(message)) {}
    std::optional<std::string> message_;
};

}  // namespace kestrow
