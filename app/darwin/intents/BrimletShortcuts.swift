// The phrases that run the memory questions without any set-up in the Shortcuts app. The cleanup
// intent has none: it opens a window and is meant to be chosen, not spoken by accident.
//
// Only the phrases: the initialiser that also takes a short title and a symbol is macOS 14 API,
// and this app runs from macOS 13. The Shortcuts app shows each intent's own title instead.
import AppIntents

struct BrimletShortcuts: AppShortcutsProvider {
    static var appShortcuts: [AppShortcut] {
        AppShortcut(intent: MemoryInUseIntent(), phrases: ["Memory in use in \(.applicationName)"])
        AppShortcut(intent: TopMemoryAppsIntent(), phrases: ["What uses the most memory in \(.applicationName)"])
    }
}
