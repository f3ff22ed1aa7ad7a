// The phrases that run the memory questions without any set-up in the Shortcuts app. The cleanup
// intent has none: it opens a window and is meant to be chosen, not spoken by accident.
//
// The initialiser that also takes a short title and a symbol is macOS 14 API, and the result builder
// can only choose between shortcuts by availability from macOS 14.4. A build for macOS 13 (the
// default) therefore gives the phrases only, and the Shortcuts app shows each intent's own title; a
// build whose deployment target is 14 or later defines BRIMLET_SHORTCUT_TITLES and gives both.
import AppIntents

struct BrimletShortcuts: AppShortcutsProvider {
    static var appShortcuts: [AppShortcut] {
#if BRIMLET_SHORTCUT_TITLES
        AppShortcut(intent: MemoryInUseIntent(),
                    phrases: ["Memory in use in \(.applicationName)"],
                    shortTitle: "Memory in use",
                    systemImageName: "memorychip")
        AppShortcut(intent: TopMemoryAppsIntent(),
                    phrases: ["What uses the most memory in \(.applicationName)"],
                    shortTitle: "Top memory apps",
                    systemImageName: "list.number")
#else
        AppShortcut(intent: MemoryInUseIntent(), phrases: ["Memory in use in \(.applicationName)"])
        AppShortcut(intent: TopMemoryAppsIntent(), phrases: ["What uses the most memory in \(.applicationName)"])
#endif
    }
}
