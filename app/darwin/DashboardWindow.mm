// The dashboard: the machine's live figures with their grades, 5-minute charts and the application
// table with its quit control. Every text, row and scale comes from the dashboard's presenter
// (app/screens/MonitorScreens); this file lays them out and hands the quit request to AppQuitter.
#include <optional>
#include <string>
#include <vector>

#include "MetricChartView.hpp"
#include "WindowContent.hpp"
#include "WindowKit.hpp"
#include "app/desktop/AppQuitter.hpp"
#include "app/screens/DashboardFigures.hpp"
#include "app/screens/MonitorReadout.hpp"
#include "app/screens/MonitorScreens.hpp"
#include "base/darwin/ViewLayout.hpp"

using brimlet::mac::toNSString;

// The rounded background of a figure, drawn with system colors so it follows dark mode.
@interface KBCardView : NSView
@end

@implementation KBCardView
- (void)drawRect:(NSRect)dirtyRect {
    (void)dirtyRect;
    NSBezierPath* shape = [NSBezierPath bezierPathWithRoundedRect:NSInsetRect(self.bounds, 0.5, 0.5)
                                                          xRadius:8
                                                          yRadius:8];
    [NSColor.controlBackgroundColor setFill];
    [shape fill];
    [NSColor.separatorColor setStroke];
    [shape stroke];
}
@end

namespace {

NSString* const nameColumn = @"name";
NSString* const memoryColumn = @"memory";
NSString* const cpuColumn = @"cpu";
NSString* const processesColumn = @"processes";
NSString* const quitColumn = @"quit";

// One figure: title, value, detail and the grade of its area.
struct FigureCard {
    NSView* box = nil;
    NSTextField* title = nil;
    NSTextField* value = nil;
    NSTextField* detail = nil;
    NSTextField* grade = nil;
};

FigureCard makeFigureCard() {
    FigureCard card;
    card.title = brimlet::mac::makeLabel(@"", NSFontTextStyleSubheadline, NSColor.secondaryLabelColor);
    card.value = [NSTextField labelWithString:toNSString(brimlet::MonitorReadout::unknown)];
    card.value.font = [NSFont monospacedDigitSystemFontOfSize:22 weight:NSFontWeightSemibold];
    card.value.textColor = NSColor.labelColor;
    card.detail = brimlet::mac::makeLabel(@"", NSFontTextStyleFootnote, NSColor.tertiaryLabelColor);
    card.grade = brimlet::mac::makeLabel(@"", NSFontTextStyleCaption1, NSColor.secondaryLabelColor);
    card.grade.font = [NSFont systemFontOfSize:NSFont.smallSystemFontSize weight:NSFontWeightSemibold];
    card.grade.alignment = NSTextAlignmentRight;

    NSStackView* top = [NSStackView stackViewWithViews:@[ card.title, card.grade ]];
    top.distribution = NSStackViewDistributionFill;
    [card.title setContentHuggingPriority:NSLayoutPriorityDefaultLow
                           forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* column = [NSStackView stackViewWithViews:@[ top, card.value, card.detail ]];
    column.orientation = NSUserInterfaceLayoutOrientationVertical;
    column.alignment = NSLayoutAttributeLeading;
    column.spacing = 4;
    column.edgeInsets = NSEdgeInsetsMake(10, 12, 10, 12);
    column.translatesAutoresizingMaskIntoConstraints = NO;
    [top.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-24].active = YES;

    card.box = [[KBCardView alloc] init];
    [card.box addSubview:column];
    kestrow::mac::pinEdges(column, card.box);
    // VoiceOver reads the card as one element: "CPU, 12%, All cores, Great".
    card.box.accessibilityElement = YES;
    card.box.accessibilityRole = NSAccessibilityGroupRole;
    return card;
}

void fill(FigureCard& card, const brimlet::DashboardFigure& figure) {
    card.title.stringValue = toNSString(figure.title);
    card.value.stringValue = toNSString(figure.value);
    card.detail.stringValue = toNSString(figure.detail);
    card.grade.stringValue = toNSString(figure.rating ? figure.rating->rawValue() : std::string_view());
    card.grade.textColor = brimlet::mac::ratingColor(figure.rating);
    card.box.accessibilityLabel = toNSString(figure.accessibilityLabel());
}

} // namespace

@interface KBDashboardViewController : NSViewController <NSTableViewDataSource, NSTableViewDelegate>
- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application;
@end

@implementation KBDashboardViewController {
    brimlet::BrimletApplication* _application;
    kestrow::MainLoop::Token _observation;
    std::vector<FigureCard> _cards;
    brimlet::DashboardScreen _screen;
    std::vector<brimlet::AppListRow> _rows;
    NSTextField* _status;
    NSButton* _dismissAlertHint;
    KBMetricChartView* _memoryChart;
    KBMetricChartView* _cpuChart;
    KBMetricChartView* _diskChart;
    NSTextField* _memoryNow;
    NSTextField* _cpuNow;
    NSTextField* _diskNow;
    NSTableView* _table;
    NSTextField* _hiddenNote;
    NSButton* _quitSelected;
    NSCache<NSString*, NSImage*>* _icons;
}

- (instancetype)initWithApplication:(brimlet::BrimletApplication&)application {
    if ((self = [super initWithNibName:nil bundle:nil])) {
        _application = &application;
        _icons = [[NSCache alloc] init];
    }
    return self;
}

// ---- Layout

- (void)loadView {
    NSView* root = [[NSView alloc] initWithFrame:NSMakeRect(0, 0, 1040, 820)];
    _screen = brimlet::MonitorScreens::dashboard(_application->monitor());

    _status =
        brimlet::mac::makeLabel(toNSString(_screen.status), NSFontTextStyleSubheadline, NSColor.secondaryLabelColor);
    _dismissAlertHint = [NSButton buttonWithTitle:toNSString(_screen.dismissAlertNote.title) target:nil action:nil];
    _dismissAlertHint.controlSize = NSControlSizeSmall;
    _dismissAlertHint.hidden = YES;
    _dismissAlertHint.accessibilityLabel = toNSString(_screen.dismissAlertNote.spokenLabel());
    brimlet::BrimletApplication* application = _application;
    brimlet::mac::onAction(_dismissAlertHint, ^(id) { application->monitor().setHasUndeliveredAlert(false); });
    NSStackView* header = [NSStackView stackViewWithViews:@[ _status, _dismissAlertHint ]];

    // Nine figures in three rows of three.
    NSMutableArray<NSView*>* rows = [NSMutableArray array];
    for (int row = 0; row < 3; ++row) {
        NSMutableArray<NSView*>* boxes = [NSMutableArray array];
        for (int column = 0; column < 3; ++column) {
            _cards.push_back(makeFigureCard());
            [boxes addObject:_cards.back().box];
        }
        NSStackView* line = [NSStackView stackViewWithViews:boxes];
        line.distribution = NSStackViewDistributionFillEqually;
        line.spacing = 12;
        [rows addObject:line];
    }
    NSStackView* figures = [NSStackView stackViewWithViews:rows];
    figures.orientation = NSUserInterfaceLayoutOrientationVertical;
    figures.spacing = 12;
    figures.alignment = NSLayoutAttributeLeading;
    for (NSView* line in rows)
        [line.widthAnchor constraintEqualToAnchor:figures.widthAnchor].active = YES;

    NSColor* readColor = NSColor.systemBlueColor;
    NSColor* writeColor = NSColor.systemOrangeColor;
    const NSUInteger capacity = brimlet::MetricsHistory::defaultCapacity;
    _memoryChart = [[KBMetricChartView alloc] initWithCapacity:capacity colors:@[ NSColor.systemPurpleColor ]];
    _cpuChart = [[KBMetricChartView alloc] initWithCapacity:capacity colors:@[ NSColor.systemGreenColor ]];
    _diskChart = [[KBMetricChartView alloc] initWithCapacity:capacity colors:@[ readColor, writeColor ]];
    _memoryNow = [self nowLabel];
    _cpuNow = [self nowLabel];
    _diskNow = [self nowLabel];
    NSStackView* charts = [NSStackView stackViewWithViews:@[
        [self chartPanel:toNSString(_screen.chartTitles.at(0)) now:_memoryNow chart:_memoryChart legend:nil],
        [self chartPanel:toNSString(_screen.chartTitles.at(1)) now:_cpuNow chart:_cpuChart legend:nil],
        [self chartPanel:toNSString(_screen.chartTitles.at(2))
                     now:_diskNow
                   chart:_diskChart
                  legend:[self legendWithReads:readColor writes:writeColor]],
    ]];
    charts.distribution = NSStackViewDistributionFillEqually;
    charts.spacing = 16;

    NSScrollView* tableScroll = [self makeTable];
    _hiddenNote = brimlet::mac::makeLabel([NSString string], NSFontTextStyleFootnote, NSColor.secondaryLabelColor);
    _quitSelected = [NSButton buttonWithTitle:toNSString(_screen.quitSelected.title) target:nil action:nil];
    _quitSelected.enabled = NO;
    _quitSelected.accessibilityLabel = toNSString(_screen.quitSelected.spokenLabel());
    __weak KBDashboardViewController* weakSelf = self;
    brimlet::mac::onAction(_quitSelected,
                           ^(id) { [weakSelf confirmQuitOfRow:weakSelf ? [weakSelf selectedRow] : -1]; });
    NSView* spacer = [[NSView alloc] init];
    [spacer setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* footer = [NSStackView stackViewWithViews:@[ _hiddenNote, spacer, _quitSelected ]];

    NSStackView* stack = [NSStackView stackViewWithViews:@[
        header, figures, brimlet::mac::makeHeading(toNSString(_screen.chartsHeading)), charts,
        brimlet::mac::makeHeading(toNSString(_screen.tableHeading)), tableScroll, footer
    ]];
    stack.orientation = NSUserInterfaceLayoutOrientationVertical;
    stack.alignment = NSLayoutAttributeLeading;
    stack.distribution = NSStackViewDistributionFill; // the table takes whatever height is left
    stack.spacing = 14;
    stack.edgeInsets = NSEdgeInsetsMake(16, 20, 16, 20);
    [stack setCustomSpacing:6 afterView:stack.arrangedSubviews[2]];
    [stack setCustomSpacing:6 afterView:stack.arrangedSubviews[4]];
    [root addSubview:stack];
    kestrow::mac::pinEdges(stack, root);
    for (NSView* view in @[ header, figures, charts, tableScroll, footer ])
        [view.widthAnchor constraintEqualToAnchor:stack.widthAnchor constant:-40].active = YES;
    [tableScroll setContentHuggingPriority:1 forOrientation:NSLayoutConstraintOrientationVertical];
    [tableScroll.heightAnchor constraintGreaterThanOrEqualToConstant:160].active = YES;
    self.view = root;
}

- (NSTextField*)nowLabel {
    NSTextField* label = [NSTextField labelWithString:[NSString string]];
    label.font = [NSFont monospacedDigitSystemFontOfSize:NSFont.smallSystemFontSize weight:NSFontWeightRegular];
    label.textColor = NSColor.secondaryLabelColor;
    label.alignment = NSTextAlignmentRight;
    return label;
}

- (NSView*)legendWithReads:(NSColor*)reads writes:(NSColor*)writes {
    // The disk chart's two lines, in the presenter's order: reads, then writes.
    const std::vector<std::string>& names = _screen.diskLegend;
    NSTextField* r = brimlet::mac::makeLabel(toNSString(names.size() > 0 ? names[0] : std::string()),
                                             NSFontTextStyleCaption1, reads);
    NSTextField* w = brimlet::mac::makeLabel(toNSString(names.size() > 1 ? names[1] : std::string()),
                                             NSFontTextStyleCaption1, writes);
    NSStackView* legend = [NSStackView stackViewWithViews:@[ r, w ]];
    legend.spacing = 10;
    legend.accessibilityElement = NO; // the chart's own label names both lines
    return legend;
}

- (NSView*)chartPanel:(NSString*)title now:(NSTextField*)now chart:(NSView*)chart legend:(NSView*)legend {
    NSTextField* heading = brimlet::mac::makeLabel(title, NSFontTextStyleSubheadline, NSColor.labelColor);
    [heading setContentHuggingPriority:NSLayoutPriorityDefaultLow
                        forOrientation:NSLayoutConstraintOrientationHorizontal];
    NSStackView* top = [NSStackView stackViewWithViews:@[ heading, now ]];
    NSMutableArray<NSView*>* views = [NSMutableArray arrayWithObjects:top, chart, nil];
    if (legend) [views addObject:legend];
    NSStackView* panel = [NSStackView stackViewWithViews:views];
    panel.orientation = NSUserInterfaceLayoutOrientationVertical;
    panel.alignment = NSLayoutAttributeLeading;
    panel.spacing = 4;
    [top.widthAnchor constraintEqualToAnchor:panel.widthAnchor].active = YES;
    [chart.widthAnchor constraintEqualToAnchor:panel.widthAnchor].active = YES;
    return panel;
}

- (NSScrollView*)makeTable {
    _table = [[NSTableView alloc] init];
    _table.usesAlternatingRowBackgroundColors = YES;
    _table.allowsMultipleSelection = NO;
    _table.allowsEmptySelection = YES;
    _table.columnAutoresizingStyle = NSTableViewFirstColumnOnlyAutoresizingStyle;
    _table.accessibilityLabel = toNSString(_screen.tableHeading);
    struct Column {
        NSString* identifier;
        NSString* title;
        CGFloat width;
        NSTextAlignment alignment;
    };
    // The presenter's headings, in this order; the quit column's heading is its tooltip.
    const std::vector<std::string>& headings = _screen.columns;
    auto heading = [&](std::size_t i) { return toNSString(i < headings.size() ? headings[i] : std::string()); };
    const Column columns[] = {
        {nameColumn, heading(0), 420, NSTextAlignmentLeft},
        {memoryColumn, heading(1), 110, NSTextAlignmentRight},
        {cpuColumn, heading(2), 90, NSTextAlignmentRight},
        {processesColumn, heading(3), 90, NSTextAlignmentRight},
        {quitColumn, [NSString string], 40, NSTextAlignmentCenter},
    };
    for (const Column& c : columns) {
        NSTableColumn* column = [[NSTableColumn alloc] initWithIdentifier:c.identifier];
        column.title = c.title;
        column.width = c.width;
        column.minWidth = c.identifier == nameColumn ? 160 : c.width;
        column.headerCell.alignment = c.alignment;
        if (c.identifier == quitColumn) column.headerToolTip = heading(4);
        [_table addTableColumn:column];
    }
    _table.dataSource = self;
    _table.delegate = self;

    NSScrollView* scroll = [[NSScrollView alloc] init];
    scroll.documentView = _table;
    scroll.hasVerticalScroller = YES;
    scroll.borderType = NSBezelBorder;
    scroll.autohidesScrollers = YES;
    return scroll;
}

// ---- Appearing and refreshing

- (void)viewWillAppear {
    [super viewWillAppear];
    __weak KBDashboardViewController* weakSelf = self;
    _observation = _application->monitor().observe([weakSelf] { [weakSelf refresh]; });
    [self refresh];
}

- (void)viewDidDisappear {
    [super viewDidDisappear];
    _observation.cancel(); // nothing to redraw while nobody can see it
}

- (void)refresh {
    brimlet::MonitorStore& store = _application->monitor();
    NSString* selectedID = nil;
    if (const NSInteger row = [self selectedRow]; row >= 0)
        selectedID = toNSString(_rows[static_cast<std::size_t>(row)].id);
    _screen = brimlet::MonitorScreens::dashboard(store, selectedID ? brimlet::mac::utf8(selectedID) : std::string());
    _status.stringValue = toNSString(_screen.status);
    _status.textColor =
        _screen.statusTone == brimlet::screens::Tone::warning ? NSColor.systemOrangeColor : NSColor.secondaryLabelColor;
    _dismissAlertHint.hidden = !_screen.showsDismiss;
    if (_screen.figures.empty()) return;
    for (std::size_t i = 0; i < _cards.size() && i < _screen.figures.size(); ++i)
        fill(_cards[i], _screen.figures[i]);
    [self showCharts];
    _rows = _screen.rows;
    [_table reloadData];
    if (selectedID) {
        for (std::size_t i = 0; i < _rows.size(); ++i) {
            if ([toNSString(_rows[i].id) isEqualToString:selectedID]) {
                [_table selectRowIndexes:[NSIndexSet indexSetWithIndex:i] byExtendingSelection:NO];
                break;
            }
        }
    }
    _hiddenNote.stringValue = toNSString(_screen.hiddenNote);
    [self updateQuitButton];
}

- (void)showCharts {
    KBMetricChartView* views[] = {_memoryChart, _cpuChart, _diskChart};
    NSTextField* nows[] = {_memoryNow, _cpuNow, _diskNow};
    for (std::size_t i = 0; i < 3 && i < _screen.charts.size(); ++i) {
        const brimlet::DashboardChart& chart = _screen.charts[i];
        [views[i] setSeries:chart.lines ceiling:chart.ceiling summary:toNSString(chart.summary)];
        nows[i].stringValue = toNSString(chart.now);
        if (!chart.nowAccessibilityLabel.empty()) nows[i].accessibilityLabel = toNSString(chart.nowAccessibilityLabel);
    }
}

// ---- Table

- (NSInteger)selectedRow {
    const NSInteger row = _table.selectedRow;
    return row >= 0 && static_cast<std::size_t>(row) < _rows.size() ? row : -1;
}

- (void)updateQuitButton {
    const NSInteger row = [self selectedRow];
    const bool canQuit = row >= 0 && _rows[static_cast<std::size_t>(row)].quit.enabled;
    _quitSelected.enabled = canQuit;
    _quitSelected.toolTip = row >= 0 ? toNSString(_rows[static_cast<std::size_t>(row)].quit.help) : nil;
}

- (void)tableViewSelectionDidChange:(NSNotification*)notification {
    (void)notification;
    [self updateQuitButton];
}

- (NSInteger)numberOfRowsInTableView:(NSTableView*)tableView {
    (void)tableView;
    return static_cast<NSInteger>(_rows.size());
}

- (NSImage*)iconForRow:(const brimlet::AppListRow&)row {
    if (!row.bundlePath)
        return [NSImage imageWithSystemSymbolName:toNSString(row.fallbackSymbol) accessibilityDescription:nil];
    NSString* key = toNSString(row.id);
    NSImage* icon = [_icons objectForKey:key];
    if (!icon) {
        icon = [[NSWorkspace sharedWorkspace] iconForFile:toNSString(*row.bundlePath)];
        [_icons setObject:icon forKey:key];
    }
    return icon;
}

- (NSView*)tableView:(NSTableView*)tableView viewForTableColumn:(NSTableColumn*)column row:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _rows.size()) return nil;
    const brimlet::AppListRow& row = _rows[static_cast<std::size_t>(index)];
    NSString* identifier = column.identifier;

    if ([identifier isEqualToString:quitColumn]) {
        NSButton* button = [tableView makeViewWithIdentifier:quitColumn owner:self];
        if (!button) {
            button = [NSButton buttonWithImage:[NSImage imageWithSystemSymbolName:toNSString(row.quit.symbol)
                                                         accessibilityDescription:toNSString(row.quit.title)]
                                        target:nil
                                        action:nil];
            button.bordered = NO;
            button.identifier = quitColumn;
        }
        button.tag = index;
        button.enabled = row.quit.enabled;
        button.toolTip = toNSString(row.quit.help);
        button.accessibilityLabel = toNSString(row.quit.spokenLabel());
        button.accessibilityHelp = toNSString(row.quit.help);
        __weak KBDashboardViewController* weakSelf = self;
        brimlet::mac::onAction(button,
                               ^(id sender) { [weakSelf confirmQuitOfRow:[static_cast<NSButton*>(sender) tag]]; });
        return button;
    }

    NSTableCellView* cell = [tableView makeViewWithIdentifier:identifier owner:self];
    if (!cell) {
        cell = [[NSTableCellView alloc] init];
        cell.identifier = identifier;
        NSTextField* text = [NSTextField labelWithString:[NSString string]];
        text.lineBreakMode = NSLineBreakByTruncatingTail;
        text.translatesAutoresizingMaskIntoConstraints = NO;
        [cell addSubview:text];
        cell.textField = text;
        NSLayoutXAxisAnchor* leading = cell.leadingAnchor;
        CGFloat inset = 4;
        if ([identifier isEqualToString:nameColumn]) {
            NSImageView* image = [[NSImageView alloc] init];
            image.translatesAutoresizingMaskIntoConstraints = NO;
            [cell addSubview:image];
            cell.imageView = image;
            [NSLayoutConstraint activateConstraints:@[
                [image.leadingAnchor constraintEqualToAnchor:cell.leadingAnchor constant:4],
                [image.centerYAnchor constraintEqualToAnchor:cell.centerYAnchor],
                [image.widthAnchor constraintEqualToConstant:16],
                [image.heightAnchor constraintEqualToConstant:16],
            ]];
            leading = image.trailingAnchor;
            inset = 6;
        } else {
            text.alignment = NSTextAlignmentRight;
            text.font = [NSFont monospacedDigitSystemFontOfSize:NSFont.systemFontSize weight:NSFontWeightRegular];
        }
        [NSLayoutConstraint activateConstraints:@[
            [text.leadingAnchor constraintEqualToAnchor:leading constant:inset],
            [text.trailingAnchor constraintEqualToAnchor:cell.trailingAnchor constant:-4],
            [text.centerYAnchor constraintEqualToAnchor:cell.centerYAnchor],
        ]];
    }
    if ([identifier isEqualToString:nameColumn]) {
        cell.textField.stringValue = toNSString(row.name);
        cell.imageView.image = [self iconForRow:row];
    } else if ([identifier isEqualToString:memoryColumn]) {
        cell.textField.stringValue = toNSString(row.memory);
    } else if ([identifier isEqualToString:cpuColumn]) {
        cell.textField.stringValue = toNSString(row.cpu);
    } else {
        cell.textField.stringValue = toNSString(row.processes);
    }
    return cell;
}

// ---- Quitting

- (void)confirmQuitOfRow:(NSInteger)index {
    if (index < 0 || static_cast<std::size_t>(index) >= _rows.size() || !self.view.window) return;
    const auto& snapshot = _application->monitor().snapshot();
    if (!snapshot) return;
    // The row's group as the latest snapshot has it: the figures in the question are current.
    const std::optional<brimlet::AppGroup> found =
        brimlet::MonitorScreens::group(_application->monitor(), _rows[static_cast<std::size_t>(index)].id);
    if (!found) return;
    const std::optional<brimlet::MonitorDialog> question = brimlet::MonitorScreens::quitDialog(*found);
    if (!question) return;
    const brimlet::AppGroup group = *found;
    brimlet::mac::askDialog(*question, self.view.window, [group](const brimlet::MonitorControl& chosen) {
        if (chosen.action == brimlet::MonitorCommand::confirmQuitApp) brimlet::mac::quitApplication(group);
    });
}

@end

namespace brimlet::mac {

void quitApplication(const AppGroup& group) {
    NSArray<NSRunningApplication*>* applications = NSWorkspace.sharedWorkspace.runningApplications;
    std::vector<RunningApplication> running;
    running.reserve(applications.count);
    for (NSRunningApplication* application in applications) {
        NSURL* bundle = application.bundleURL;
        running.push_back({application.processIdentifier,
                           bundle.path ? std::optional<std::string>(utf8(bundle.path)) : std::nullopt});
    }
    AppQuitter::quit(group, running, NSProcessInfo.processInfo.processIdentifier,
                     [applications](const RunningApplication& target) {
                         for (NSRunningApplication* application in applications) {
                             if (application.processIdentifier == target.processIdentifier) {
                                 // The polite request of its Quit command; whether it agrees is its own business.
                                 [application terminate];
                                 return;
                             }
                         }
                     });
}

NSViewController* makeDashboardViewController(BrimletApplication& application) {
    return [[KBDashboardViewController alloc] initWithApplication:application];
}

} // namespace brimlet::mac
