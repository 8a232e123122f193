#include "macos/MacPanel.h"

#include <algorithm>
#include <utility>

#include "macos/MacCards.h"
#include "macos/MacPainter.h"
#include "macos/MacText.h"
#include "popover/PopoverMetrics.h"

/// Takes the keys that no control uses.
@interface MGPanelView : MGView
@property(nonatomic) std::function<void()> cancel;
@property(nonatomic) std::function<bool(NSString*)> command;
@end

@implementation MGPanelView
- (BOOL)acceptsFirstResponder {
  return YES;
}
- (void)keyDown:(NSEvent*)event {
  if ([event.charactersIgnoringModifiers isEqualToString:@"\x1b"]) {
    [self interpretKeyEvents:@[ event ]];
  } else {
    [super keyDown:event];  // such as Tab, which the window knows but as a command nobody does
  }
}
- (void)cancelOperation:(id)sender {
  (void)sender;
  if (_cancel) {
    _cancel();
  }
}
- (BOOL)performKeyEquivalent:(NSEvent*)event {
  const bool command = (event.modifierFlags & NSEventModifierFlagCommand) != 0;
  return (command && _command && _command(event.charactersIgnoringModifiers)) ||
         [super performKeyEquivalent:event];
}
@end

namespace marigold {

namespace {

using Page = PopoverContent::Page;

constexpr double pageWidth = metrics::panelWidth - 2 * metrics::margin;

NSView* viewCalled(NSString* identifier, NSView* root) {
  for (NSView* view in root.subviews) {
    NSView* const found =
        [view.identifier isEqualToString:identifier] ? view : viewCalled(identifier, view);
    if (found != nil) {
      return found;
    }
  }
  return nil;
}

// What goes may be what is being used: it is let go of in the next turn of the run loop.
void letGoLater(NSArray<NSView*>* views) {
  NSMutableArray<NSView*>* const kept = [views mutableCopy];
  [kept performSelectorOnMainThread:@selector(removeAllObjects) withObject:nil waitUntilDone:NO];
}

}  // namespace

MacPanel::MacPanel(bool paintsGround)
    : view_([[MGPanelView alloc] initWithFrame:NSMakeRect(0, 0, metrics::panelWidth, 0)]),
      header_([[MGView alloc]
          initWithFrame:NSMakeRect(0, 0, metrics::panelWidth, metrics::headerHeight)]),
      scroll_([[NSScrollView alloc]
          initWithFrame:NSMakeRect(0, metrics::headerHeight, metrics::panelWidth,
                                   metrics::panelWidth)]),
      page_([[MGView alloc] initWithFrame:NSMakeRect(0, 0, metrics::panelWidth, 0)]) {
  scroll_.drawsBackground = NO;
  scroll_.borderType = NSNoBorder;
  scroll_.documentView = page_;
  [view_ addSubview:header_];
  [view_ addSubview:scroll_];
  keys();
  if (paintsGround) {
    __weak MGView* const weak = view_;
    view_.draw = [this, weak] {
      constexpr double radius = 16;
      const PopoverColors& colors = popoverColors(content_.theme);
      drawPanel(weak, radius, colors.ground, colors.edge);
    };
  }
}

MacPanel::~MacPanel() {
  view_.draw = {};
  view_.cancel = {};
  view_.command = {};
}

NSView* MacPanel::view() const {
  return view_;
}

void MacPanel::keys() {
  view_.cancel = [this] {
    if (content_.page == Page::settings) {
      const Handler showPage = content_.showPage;
      showPage(static_cast<int>(Page::cards));
    } else if (onCancel) {
      onCancel();
    }
  };
  view_.command = [this](NSString* key) {
    if ([key isEqualToString:@"r"]) {
      const Handler refresh = content_.refreshNow;
      refresh();
    } else if ([key isEqualToString:@","]) {
      const Handler showPage = content_.showPage;
      showPage(static_cast<int>(Page::settings));
    } else {
      return false;
    }
    return true;
  };
}

void MacPanel::take(const PopoverContent& content) {
  // The first one too: a popover without would look like the menu bar that it points at.
  if (content.theme != content_.theme || view_.appearance == nil) {
    cards_.clear();
    rows_.clear();
    view_.appearance =
        [NSAppearance appearanceNamed:content.theme.scheme == MarigoldTheme::Scheme::dark
                                          ? NSAppearanceNameDarkAqua
                                          : NSAppearanceNameAqua];
  }
  const bool turnsPage = content.page != content_.page;
  headerStands_ = headerStands_ && !turnsPage && content.theme == content_.theme &&
                  content.refresh == content_.refresh && content.header == content_.header &&
                  content.settings.title == content_.settings.title;
  content_ = content;
  if (turnsPage) {
    asked_.clear();  // what was asked is not asked again as the page comes back
  }
  show();
  if (turnsPage) {
    scrollToTop();
  }
}

void MacPanel::show() {
  NSResponder* const responder = view_.window.firstResponder;
  NSView* const focused =
      [responder isKindOfClass:NSView.class] ? static_cast<NSView*>(responder) : nil;
  NSString* const identifier = focused.identifier;
  showHeader();
  if (content_.page == Page::cards) {
    stack(cards(), metrics::cardGap);
  } else {
    stack(sections(), metrics::sectionGap);
  }
  if (view_.window != nil && identifier != nil && view_.window.firstResponder != focused) {
    NSView* const again = viewCalled(identifier, view_);
    [view_.window makeFirstResponder:again != nil ? again : view_];
  }
  view_.needsDisplay = YES;
}

void MacPanel::showHeader() {
  if (std::exchange(headerStands_, true)) {
    return;
  }
  const PopoverHeader& header = content_.header;
  const bool onCards = content_.page == Page::cards;
  letGoLater(header_.subviews);
  header_.subviews = @[];
  const auto show = [showPage = content_.showPage](Page page) {
    return [showPage, page] { showPage(static_cast<int>(page)); };
  };
  const auto add = [this](NSButton* button, NSString* identifier, double x) {
    constexpr double top = 10;
    button.identifier = identifier;
    place(button, header_, x, top);
  };
  constexpr double afterBack = 38;
  constexpr double alone = 16;
  constexpr double button = 28;
  double end = metrics::panelWidth - metrics::margin - button;
  if (onCards) {
    add(makeSymbolButton(@"gearshape", header.settings, show(Page::settings)), @"settings", end);
    end -= button;
    const bool done = content_.refresh == PopoverContent::Refresh::done;
    NSButton* const refresh =
        makeSymbolButton(done ? @"checkmark" : @"arrow.clockwise", header.refresh,
                         [now = content_.refreshNow] { now(); });
    refresh.enabled = content_.refresh != PopoverContent::Refresh::running;
    add(refresh, @"refresh", end);
  } else {
    add(makeSymbolButton(@"chevron.backward", header.back, show(Page::cards)), @"back",
        metrics::margin);
  }
  NSTextField* const title = makeLabel(onCards ? header.title : content_.settings.title,
                                       {.size = metrics::cardTitleSize,
                                        .weight = FontStyle::Weight::semibold,
                                        .color = popoverColors(content_.theme).text});
  constexpr double middle = 24;
  place(title, header_, onCards ? alone : afterBack, middle - NSHeight(title.frame) / 2);
}

NSArray<NSView*>* MacPanel::cards() {
  NSMutableArray<NSView*>* const views = [[NSMutableArray alloc] init];
  std::vector<Card> shown;
  for (const ProviderCard& card : content_.cards) {
    const bool isOpen = open_.contains(card.key);
    const auto known = std::ranges::find_if(
        cards_, [&](const Card& each) { return each.isOpen == isOpen && each.shown == card; });
    NSView* const view = known != cards_.end()
                             ? known->view
                             : makeCard(card, popoverColors(content_.theme), pageWidth, isOpen,
                                        [this, key = card.key] { turn(open_, key); });
    shown.push_back({.shown = card, .isOpen = isOpen, .view = view});
    [views addObject:view];
  }
  cards_ = std::move(shown);
  return views;
}

NSArray<NSView*>* MacPanel::sections() {
  NSMutableArray<NSView*>* const views = [[NSMutableArray alloc] init];
  Rows rows;
  for (const SettingsSection& section : content_.settings.sections) {
    std::vector<NSView*> ofSection;
    for (const SettingsRow& row : section.rows) {
      if (!row.details.empty() && !std::exchange(openedFirst_, true)) {
        open_.insert(row.key);
      }
      addRow(row, 0, rows, ofSection);
      for (const SettingsRow& detail : row.details) {
        if (open_.contains(row.key)) {
          addRow(detail, 1, rows, ofSection);
        }
      }
    }
    [views addObject:makeSection(section, ofSection)];
  }
  rows_ = std::move(rows);
  return views;
}

void MacPanel::addRow(const SettingsRow& row, int depth, Rows& rows, std::vector<NSView*>& views) {
  const RowState state{
      .depth = depth, .isOpen = open_.contains(row.key), .isAsked = asked_ == row.key};
  const auto known = rows_.find(row.key);
  NSView* const view =
      known != rows_.end() && known->second.shown == row && known->second.state == state
          ? known->second.view
          : makeSettingsRow(row, state, popoverColors(content_.theme), pageWidth, useOf(row));
  rows[row.key] = {.shown = row, .state = state, .view = view};
  views.push_back(view);
}

// What was chosen may not have been taken: the control shows what the content has.
RowUse MacPanel::useOf(const SettingsRow& row) {
  return {.use =
              [this, use = row.use, key = row.key](int choice) {
                use(choice);
                rows_.erase(key);
                show();
              },
          .turn = [this, key = row.key] { turn(open_, key); },
          .ask =
              [this, key = row.key](bool asks) {
                asked_ = asks ? key : std::string();
                show();
                if (onHeightChange) {
                  onHeightChange();
                }
              }};
}

NSView* MacPanel::makeSection(const SettingsSection& section,
                              const std::vector<NSView*>& rows) const {
  const PopoverColors& colors = popoverColors(content_.theme);
  MGView* const view = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, pageWidth, 0)];
  speakAs(view, NSAccessibilityGroupRole, section.title);
  NSTextField* const title = makeLabel(section.title, {.size = metrics::sectionTitleSize,
                                                       .weight = FontStyle::Weight::semibold,
                                                       .color = colors.secondary});
  place(title, view, metrics::besideSectionTitle, 0);
  MGView* const ground = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, pageWidth, 0)];
  std::vector<double> lines;
  double y = 0;
  for (NSView* const& row : rows) {
    if (y > 0) {
      lines.push_back(y);
    }
    place(row, ground, 0, y);
    y += NSHeight(row.frame);
  }
  [ground setFrameSize:NSMakeSize(pageWidth, y)];
  __weak MGView* const weak = ground;
  ground.draw = [weak, lines = std::move(lines), &colors] {
    drawPanel(weak, MarigoldTheme::cardRadius, colors.card, colors.cardEdge);
    [toMac(colors.separator) setFill];
    for (const double line : lines) {
      [[NSBezierPath bezierPathWithRect:NSMakeRect(0, line, pageWidth, 1)] fill];
    }
  };
  const double top = NSHeight(title.frame) + metrics::belowSectionTitle;
  place(ground, view, 0, top);
  [view setFrameSize:NSMakeSize(pageWidth, top + y)];
  return view;
}

void MacPanel::stack(NSArray<NSView*>* views, double gap) {
  letGoLater(page_.subviews);
  if (![page_.subviews isEqualToArray:views]) {
    page_.subviews = views;
  }
  double y = 0;
  for (NSView* view in views) {
    [view setFrameOrigin:NSMakePoint(metrics::margin, y)];
    y += NSHeight(view.frame) + gap;
  }
  y += metrics::margin - (views.count > 0 ? gap : 0);
  [page_ setFrameSize:NSMakeSize(metrics::panelWidth, y)];
  height_ = metrics::headerHeight + y;
}

void MacPanel::turn(std::set<std::string>& open, const std::string& key) {
  if (open.erase(key) == 0) {
    open.insert(key);
  }
  show();
  if (onHeightChange) {
    onHeightChange();
  }
}

void MacPanel::setHeight(double height) {
  [view_ setFrameSize:NSMakeSize(metrics::panelWidth, height)];
  scroll_.hasVerticalScroller = height < height_;
  [scroll_ setFrameSize:NSMakeSize(metrics::panelWidth, height - metrics::headerHeight)];
}

void MacPanel::scrollToTop() {
  [page_ scrollRectToVisible:NSMakeRect(0, 0, 1, 1)];
}

}  // namespace marigold
