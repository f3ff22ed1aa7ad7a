// The main menu from MainMenu::menus(): each command goes to the system's own action through the
// responder chain (so Copy reaches the focused text, Close the key window), Settings to the window
// presenter.
#include "MacFrontEnd.hpp"

#include "WindowKit.hpp"
#include "app/desktop/BrimletWindows.hpp"
#include "app/screens/MainMenu.hpp"

// Opens the settings window; menu items hold their targets weakly, so the menu bar's owner keeps it.
@interface KBSettingsMenuTarget : NSObject
@property(nonatomic, assign) brimlet::mac::WindowPresenter* windows;
- (void)openSettings:(id)sender;
@end

@implementation KBSettingsMenuTarget
- (void)openSettings:(id)sender {
    (void)sender;
    if (_windows) _windows->open(brimlet::BrimletWindows::settings);
}
@end

namespace brimlet::mac {

namespace {

SEL selectorFor(MenuCommand command) {
    switch (command) {
    case MenuCommand::separator:
        return nil;
    case MenuCommand::about:
        return @selector(orderFrontStandardAboutPanel:);
    case MenuCommand::settings:
        return @selector(openSettings:);
    case MenuCommand::hide:
        return @selector(hide:);
    case MenuCommand::hideOthers:
        return @selector(hideOtherApplications:);
    case MenuCommand::showAll:
        return @selector(unhideAllApplications:);
    case MenuCommand::quit:
        return @selector(terminate:);
    case MenuCommand::undo:
        return @selector(undo:);
    case MenuCommand::redo:
        return @selector(redo:);
    case MenuCommand::cut:
        return @selector(cut:);
    case MenuCommand::copy:
        return @selector(copy:);
    case MenuCommand::paste:
        return @selector(paste:);
    case MenuCommand::selectAll:
        return @selector(selectAll:);
    case MenuCommand::minimize:
        return @selector(performMiniaturize:);
    case MenuCommand::zoom:
        return @selector(performZoom:);
    case MenuCommand::close:
        return @selector(performClose:);
    case MenuCommand::bringAllToFront:
        return @selector(arrangeInFront:);
    }
    return nil;
}

class SystemMainMenu final : public MainMenuInstallation {
public:
    explicit SystemMainMenu(WindowPresenter& windows) : target_([[KBSettingsMenuTarget alloc] init]) {
        target_.windows = &windows;
        NSMenu* bar = [[NSMenu alloc] init];
        for (const Menu& menu : MainMenu::menus()) {
            NSMenu* submenu = [[NSMenu alloc] initWithTitle:toNSString(menu.title)];
            for (const MenuEntry& entry : menu.entries) {
                if (entry.command == MenuCommand::separator) {
                    [submenu addItem:[NSMenuItem separatorItem]];
                    continue;
                }
                NSMenuItem* item = [[NSMenuItem alloc] initWithTitle:toNSString(entry.title)
                                                              action:selectorFor(entry.command)
                                                       keyEquivalent:toNSString(entry.key)];
                NSEventModifierFlags modifiers = NSEventModifierFlagCommand;
                if (entry.shift) modifiers |= NSEventModifierFlagShift;
                if (entry.option) modifiers |= NSEventModifierFlagOption;
                item.keyEquivalentModifierMask = modifiers;
                // The application's own commands go to NSApp or the settings target; the rest
                // travel the responder chain (nil target) to the focused view or the key window.
                if (entry.command == MenuCommand::settings) item.target = target_;
                [submenu addItem:item];
            }
            NSMenuItem* holder = [[NSMenuItem alloc] initWithTitle:toNSString(menu.title) action:nil keyEquivalent:@""];
            holder.submenu = submenu;
            [bar addItem:holder];
            if (menu.isWindowsMenu) NSApp.windowsMenu = submenu;
        }
        NSApp.mainMenu = bar;
    }

    ~SystemMainMenu() override { target_.windows = nullptr; }

private:
    KBSettingsMenuTarget* target_;
};

} // namespace

std::unique_ptr<MainMenuInstallation> installMainMenu(WindowPresenter& windows) {
    return std::make_unique<SystemMainMenu>(windows);
}

} // namespace brimlet::mac
