// Opens the cleanup window. The system brings the application forward for it, and that reopen must
// not also open the dashboard: the bridge records the request's time before anything else.
import AppIntents
import BrimletIntentBridge

struct OpenCleanupIntent: AppIntent {
    static let title: LocalizedStringResource = "Clean regenerable caches (Kestrow Brimlet)"
    static let openAppWhenRun = true

    @MainActor
    func perform() async throws -> some IntentResult {
        // Before any view can open windows the open waits and happens as soon as one can; only a
        // process with no application at all fails.
        let status = brimlet_intent_open_cleanup()
        guard status == BrimletIntentStatusAnswered else { throw BrimletIntentFailure(status: status) }
        return .result()
    }
}
