#include "macos/MacSettings.h"

#include <algorithm>
#include <array>
#include <utility>
#include <variant>

#include "macos/MacPainter.h"
#include "macos/MacText.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

NSImage* swatch(const SettingsOption& option, const PopoverColors& colors) {
  constexpr double side = 14;
  Drawing drawing{.size = {.width = side, .height = side}};
  drawing.add(StrokeArc{.center = {.x = side / 2, .y = side / 2},
                        .radius = side / 4,
                        .width = side / 2,
                        .color = option.color.value_or(colors.track)});
  NSImage* const image = imageOf(drawing, 1);
  image.accessibilityDescription = toMac(option.title);
  return image;
}

/// The native control for what a row offers.
class ControlBuilder {
 public:
  ControlBuilder(const PopoverColors& colors, const RowUse& use) : colors_(colors), use_(use) {}

  NSControl* operator()(const SettingsSwitch& shown) const {
    constexpr double wide = 38;
    constexpr double tall = 22;
    NSSwitch* const control = [[NSSwitch alloc] initWithFrame:NSMakeRect(0, 0, wide, tall)];
    control.state = shown.on ? NSControlStateValueOn : NSControlStateValueOff;
    __weak NSSwitch* const weak = control;
    onUse(control, [weak, use = use_.use] { use(weak.state == NSControlStateValueOn ? 1 : 0); });
    return control;
  }

  NSControl* operator()(const SettingsChoice& shown) const {
    return shown.kind == SettingsChoice::Kind::menu ? menu(shown) : segments(shown);
  }

  NSControl* operator()(const SettingsMoves& shown) const {
    NSSegmentedControl* const control =
        [NSSegmentedControl segmentedControlWithLabels:@[ @"↑", @"↓" ]
                                          trackingMode:NSSegmentSwitchTrackingMomentary
                                                target:nil
                                                action:nil];
    [control setEnabled:shown.canMoveUp forSegment:0];
    [control setEnabled:shown.canMoveDown forSegment:1];
    [control setToolTip:toMac(shown.up) forSegment:0];
    [control setToolTip:toMac(shown.down) forSegment:1];
    [control sizeToFit];
    constexpr std::array moves{SettingsMoves::Move::up, SettingsMoves::Move::down};
    __weak NSSegmentedControl* const weak = control;
    onUse(control, [weak, moves, use = use_.use] {
      use(static_cast<int>(moves.at(static_cast<std::size_t>(weak.selectedSegment))));
    });
    return control;
  }

  NSControl* operator()(const SettingsButton& shown) const {
    return makeTitleButton(shown.title, pressed(shown));
  }

  NSControl* operator()(const SettingsNote& /*shown*/) const { return nil; }

  [[nodiscard]] std::function<void()> pressed(const SettingsButton& button) const {
    if (button.confirmation) {
      return [ask = use_.ask] { ask(true); };
    }
    return [use = use_.use] { use(0); };
  }

 private:
  [[nodiscard]] NSControl* menu(const SettingsChoice& shown) const {
    NSPopUpButton* const control = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
    for (const SettingsOption& option : shown.options) {
      [control addItemWithTitle:toMac(option.title)];
    }
    [control selectItemAtIndex:shown.selected];
    [control sizeToFit];
    __weak NSPopUpButton* const weak = control;
    onUse(control, [weak, use = use_.use] { use(static_cast<int>(weak.indexOfSelectedItem)); });
    return control;
  }

  [[nodiscard]] NSControl* segments(const SettingsChoice& shown) const {
    const bool swatches = shown.kind == SettingsChoice::Kind::colors;
    NSMutableArray<NSString*>* const titles = [[NSMutableArray alloc] init];
    for (const SettingsOption& option : shown.options) {
      [titles addObject:swatches ? @"" : toMac(option.title)];
    }
    NSSegmentedControl* const control =
        [NSSegmentedControl segmentedControlWithLabels:titles
                                          trackingMode:NSSegmentSwitchTrackingSelectOne
                                                target:nil
                                                action:nil];
    NSInteger segment = 0;
    for (const SettingsOption& option : shown.options) {
      if (swatches) {
        constexpr double wide = 24;
        [control setImage:swatch(option, colors_) forSegment:segment];
        [control setWidth:wide forSegment:segment];
        [control setToolTip:toMac(option.title) forSegment:segment];
      }
      ++segment;
    }
    control.selectedSegment = shown.selected;
    [control sizeToFit];
    __weak NSSegmentedControl* const weak = control;
    onUse(control, [weak, use = use_.use] { use(static_cast<int>(weak.selectedSegment)); });
    return control;
  }

  const PopoverColors& colors_;
  const RowUse& use_;
};

/// Places a row's texts and its control.
class RowBuilder {
 public:
  RowBuilder(const SettingsRow& row, const RowState& state, const PopoverColors& colors,
             double width, const RowUse& use)
      : row_(row), state_(state), colors_(colors), width_(width), use_(use) {}

  NSView* build() {
    const auto* const button = std::get_if<SettingsButton>(&row_.control);
    if (state_.isAsked && button != nullptr && button->confirmation) {
      question(*button->confirmation);
    } else if (button != nullptr && button->title.empty()) {
      wholeRow(*button);
    } else {
      beside();
    }
    return view_;
  }

 private:
  void finish(double height) { [view_ setFrameSize:NSMakeSize(width_, height)]; }

  void describe(NSControl* control, const std::string& title) const {
    control.enabled = row_.enabled;
    control.identifier = toMac(row_.key);
    control.accessibilityLabel = toMac(title);
    control.accessibilityHelp = row_.explanation.empty() ? nil : toMac(row_.explanation);
  }

  void question(const Confirmation& asked) {
    constexpr double around = 10;
    constexpr double between = 4;
    const double inner = width_ - 2 * metrics::rowSide;
    NSTextField* const what = makeLabel(
        asked.question, {.weight = FontStyle::Weight::medium, .color = colors_.text}, inner);
    NSTextField* const why = makeLabel(
        asked.explanation, {.size = metrics::explanationSize, .color = colors_.secondary}, inner);
    NSButton* const goOn = makeTitleButton(asked.confirm, [use = use_.use, ask = use_.ask] {
      ask(false);
      use(0);
    });
    NSButton* const cancel = makeTitleButton(asked.cancel, [ask = use_.ask] { ask(false); });
    describe(cancel, asked.cancel);
    double y = around;
    place(what, view_, metrics::rowSide, y);
    y += NSHeight(what.frame) + between;
    place(why, view_, metrics::rowSide, y);
    y += NSHeight(why.frame) + metrics::buttonGap;
    double x = width_ - metrics::rowSide;
    for (NSButton* button in @[ goOn, cancel ]) {
      x -= NSWidth(button.frame);
      place(button, view_, x, y);
      x -= metrics::buttonGap;
    }
    finish(y + NSHeight(goOn.frame) + around);
  }

  void wholeRow(const SettingsButton& shown) {
    NSButton* const button =
        makeTitleButton(row_.title, ControlBuilder(colors_, use_).pressed(shown));
    describe(button, row_.title);
    button.bordered = NO;
    button.alignment = NSTextAlignmentNatural;
    button.contentTintColor = toMac(colors_.text);
    [button setFrameSize:NSMakeSize(width_ - 2 * metrics::rowSide, metrics::leastRowHeight)];
    place(button, view_, metrics::rowSide, 0);
    finish(metrics::leastRowHeight);
  }

  // The title with its control beside it or, where that leaves it no room, below; then what
  // explains it.
  void beside() {
    const double left = metrics::rowSide + metrics::rowIndent * state_.depth;
    const double inner = width_ - left - metrics::rowSide;
    NSControl* const control = std::visit(ControlBuilder(colors_, use_), row_.control);
    const NSSize size = control == nil ? NSZeroSize : sizeOf(control);
    NSButton* const expander = row_.details.empty() ? nil : makeExpander();
    const double taken =
        control == nil ? 0 : size.width + NSWidth(expander.frame) + metrics::beforeControl;
    constexpr double leastTitle = 110;
    const Ink ink{.color = row_.enabled ? colors_.text : colors_.secondary};
    const double wanted = NSWidth(makeLabel(row_.title, ink).frame);
    const bool below = inner - taken < std::min(wanted, leastTitle);
    NSTextField* const title = makeLabel(row_.title, ink, below ? inner : inner - taken);
    const double line =
        below ? NSHeight(title.frame) : std::max(NSHeight(title.frame), size.height);
    double y = std::max(metrics::aboveRowText, (metrics::leastRowHeight - line) / 2);
    place(title, view_, left, y + (line - NSHeight(title.frame)) / 2);
    double middle = y + line / 2;
    y += line;
    if (below) {
      middle = y + metrics::belowSectionTitle + size.height / 2;
      y += metrics::belowSectionTitle + size.height;
    }
    if (control != nil) {
      describe(control, row_.title);
      const double x = width_ - metrics::rowSide - std::min(size.width, inner);
      [control setFrameSize:NSMakeSize(std::min(size.width, inner), size.height)];
      place(control, view_, x, middle - size.height / 2);
      if (expander != nil) {
        place(expander, view_, x - NSWidth(expander.frame), middle - NSHeight(expander.frame) / 2);
      }
    }
    if (!row_.explanation.empty()) {
      NSTextField* const why = makeLabel(
          row_.explanation, {.size = metrics::explanationSize, .color = colors_.secondary}, inner);
      place(why, view_, left, y);
      y += NSHeight(why.frame);
    }
    finish(std::max(y + metrics::aboveRowText, metrics::leastRowHeight));
  }

  NSButton* makeExpander() {
    NSButton* const button = makeSymbolButton(state_.isOpen ? @"chevron.up" : @"chevron.down",
                                              row_.detailsTitle, use_.turn);
    button.identifier = toMac(row_.key + " details");
    button.accessibilityValue = state_.isOpen ? @YES : @NO;
    return button;
  }

  static NSSize sizeOf(NSControl* control) {
    const NSSize wanted = control.intrinsicContentSize;
    return NSMakeSize(wanted.width > 0 ? wanted.width : NSWidth(control.frame),
                      wanted.height > 0 ? wanted.height : NSHeight(control.frame));
  }

  const SettingsRow& row_;
  const RowState& state_;
  const PopoverColors& colors_;
  double width_;
  const RowUse& use_;
  MGView* const view_ = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, width_, 0)];
};

}  // namespace

NSView* makeSettingsRow(const SettingsRow& row, const RowState& state, const PopoverColors& colors,
                        double width, const RowUse& use) {
  return RowBuilder(row, state, colors, width, use).build();
}

}  // namespace marigold
