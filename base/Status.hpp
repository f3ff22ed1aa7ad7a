// The outcome of an operation that either succeeds or fails with a cause and a short text for the
// user or the log. Callers decide by the cause, never by matching the text, which may be reworded.
// It is a named type, not an empty-means-success optional, so the two can never be confused, and it
// must be looked at: a caller that really does not care says so with `.ignore("why")`.
//
// `Result<T>` is a value or the failure that stopped it.
#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace kestrow {

// Why an operation failed, in the few kinds a caller can act on differently.
enum class Cause {
    ok,
    unknown,             // no better kind applies; the text says what happened
    invalidArgument,     // the request itself is wrong: retrying the same never helps
    notFound,            // what was named does not exist (any more)
    alreadyExists,       // what was to be made is there already
    permissionDenied,    // the system or the user refused
    failedPrecondition,  // the state does not allow it now (changed since measured, not ready)
    cancelled,           // the caller asked to stop
    deadlineExceeded,    // it took longer than allowed
    unavailable,         // a service or library is missing or not answering; a later try may work
    resourceExhausted,   // out of space, descriptors or memory, or over a size limit
    dataLoss,            // what was read is damaged or cut short
};

class [[nodiscard]] Status {
public:
    static Status success() { return Status(); }
    static Status failure(std::string message) { return Status(Cause::unknown, std::move(message)); }
    static Status failure(Cause cause, std::string message) {
        assert(cause != Cause::ok);
        return Status(cause == Cause::ok ? Cause::unknown : cause, std::move(message));
    }

    bool ok() const { return cause_ == Cause::ok; }
    bool failed() const { return cause_ != Cause::ok; }
    Cause cause() const { return cause_; }
    // The failure's text; empty on success.
    const std::string& message() const { return message_; }

    // For the rare caller that has nothing useful to do with a failure; the reason documents why.
    void ignore(const char* /*why*/) const {}

    bool operator==(const Status&) const = default;

private:
    Status() = default;
    Status(Cause cause, std::string message) : cause_(cause), message_(std::move(message)) {}
    Cause cause_ = Cause::ok;
    std::string message_;
};

template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : state_(std::move(value)) {}          // NOLINT(google-explicit-constructor): reads as a return
    Result(Status failure) : state_(std::move(failure)) {  // NOLINT(google-explicit-constructor)
        assert(std::get<Status>(state_).failed());
        if (std::get<Status>(state_).ok()) state_ = Status::failure("a result without a value");
    }

    bool ok() const { return std::holds_alternative<T>(state_); }
    bool failed() const { return !ok(); }
    // Success when there is a value.
    Status status() const { return ok() ? Status::success() : std::get<Status>(state_); }

    // The value; only when `ok()`.
    const T& value() const& { return std::get<T>(state_); }
    T& value() & { return std::get<T>(state_); }
    T&& value() && { return std::get<T>(std::move(state_)); }
    const T& operator*() const& { return value(); }
    T& operator*() & { return value(); }
    const T* operator->() const { return &value(); }
    T* operator->() { return &value(); }

    bool operator==(const Result&) const = default;

private:
    std::variant<T, Status> state_;
};

}  // namespace kestrow
