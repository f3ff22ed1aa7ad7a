// The two memory questions. They are answered in a dialog without showing any window, so the
// system need not bring the application forward.
import AppIntents
import BrimletIntentBridge

struct MemoryInUseIntent: AppIntent {
    static let title: LocalizedStringResource = "Memory in use (Kestrow Brimlet)"
    static let openAppWhenRun = false

    @MainActor
    func perform() async throws -> some IntentResult & ReturnsValue<Int> & ProvidesDialog {
        // Always a new reading of the machine, never the monitor's last sample.
        let answer = try await IntentQuestion.answer { brimlet_intent_ask_memory_in_use() }
        return .result(value: answer.percent, dialog: "\(answer.dialog)")
    }
}

struct TopMemoryAppsIntent: AppIntent {
    static let title: LocalizedStringResource = "What uses the most memory (Kestrow Brimlet)"
    static let openAppWhenRun = false

    @MainActor
    func perform() async throws -> some IntentResult & ReturnsValue<[String]> & ProvidesDialog {
        let answer = try await IntentQuestion.answer { brimlet_intent_ask_top_memory_apps() }
        return .result(value: answer.names, dialog: "\(answer.dialog)")
    }
}
