// The phrases that run the memory questions without any set-up in the Shortcuts app. The cleanup
// intent has none: it opens a window and is meant to be chosen, not spoken by accident.
import AppIntents

struct BrimletShortcuts: AppShortcutsProvider {
    static var appShortcuts: [AppShortcut] {
        AppShortcut(intent: MemoryInUseIntent(),
                    phrases: ["Memory in use in \(.applicationName)"],
                    shortTitle: "Memory in use",
                    systemImageName: "memorychip")
        AppShortcut(intent: TopMemoryAppsIntent(),
                    phrases: ["What uses the most memory in \(.applicationName)"],
                    shortTitle: "Top memory apps",
                    systemImageName: "list.number")
    }
}
