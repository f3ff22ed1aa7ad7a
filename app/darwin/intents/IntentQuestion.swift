// The Swift side of the application's C interface for the intents: questions are asked on the main
// actor, where the application's stores live, and their answers are awaited off it, so a reading of
// its own never stalls the menu bar. The C answer is copied into Swift values and released here.
import AppIntents
import BrimletIntentBridge

/// A question the application could not answer; the system shows the text as the intent's error.
struct BrimletIntentFailure: Error, CustomLocalizedStringResourceConvertible {
    let message: String

    init(_ message: String) { self.message = message }
    init(status: BrimletIntentStatus) { self.init(String(cString: brimlet_intent_status_text(status))) }

    var localizedStringResource: LocalizedStringResource { "\(message)" }
}

/// An answer of one of the memory questions.
struct BrimletIntentAnswerValues: Sendable {
    let percent: Int
    let dialog: String
    let names: [String]
}

/// The question's reading belongs to the question alone, so it may be awaited on any thread.
private struct QuestionHandle: @unchecked Sendable {
    let pointer: OpaquePointer?
}

enum IntentQuestion {
    /// How long a question waits for its reading: a new engine samples every process once.
    static let readingTimeout: Double = 10

    @MainActor
    static func answer(_ ask: () -> OpaquePointer?) async throws -> BrimletIntentAnswerValues {
        let question = QuestionHandle(pointer: ask())
        let timeout = readingTimeout
        let outcome = await Task.detached(priority: .userInitiated) { () -> Result<BrimletIntentAnswerValues, BrimletIntentFailure> in
            guard let raw = brimlet_intent_wait_answer(question.pointer, timeout) else {
                return .failure(BrimletIntentFailure(status: BrimletIntentStatusUnavailable))
            }
            defer { brimlet_intent_free_answer(raw) }
            let answer = raw.pointee
            let dialog = String(cString: answer.dialog)
            guard answer.status == BrimletIntentStatusAnswered else { return .failure(BrimletIntentFailure(dialog)) }
            let names = (0..<answer.nameCount).compactMap { index in answer.names[index].map { String(cString: $0) } }
            return .success(BrimletIntentAnswerValues(percent: Int(answer.percent), dialog: dialog, names: names))
        }.value
        return try outcome.get()
    }
}
