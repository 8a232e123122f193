#include "macos/MacCards.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "macos/MacPainter.h"
#include "macos/MacText.h"
#include "popover/PopoverMetrics.h"

namespace marigold {

namespace {

using Weight = FontStyle::Weight;

void paintBar(NSView* view, const CardBar& bar, const PopoverColors& colors) {
  const Size whole{.width = view.bounds.size.width, .height = metrics::barHeight};
  const double radius = whole.height / 2;
  const double length = barFillLength(bar.percent, whole.width);
  Drawing drawing{.size = whole};
  drawing.add(FillRoundedRect{.size = whole, .cornerRadius = radius, .color = colors.track});
  if (bar.fill && length > 0) {
    const bool mirrored =
        view.userInterfaceLayoutDirection == NSUserInterfaceLayoutDirectionRightToLeft;
    drawing.add(FillRoundedRect{.origin = {.x = mirrored ? whole.width - length : 0},
                                .size = {.width = length, .height = whole.height},
                                .cornerRadius = radius,
                                .color = *bar.fill});
  }
  if (colors.barOutline) {
    drawing.add(StrokeRoundedRect{.origin = {.x = 0.5, .y = 0.5},
                                  .size = {.width = whole.width - 1, .height = whole.height - 1},
                                  .cornerRadius = radius - 0.5,
                                  .color = *colors.barOutline});
  }
  paint(drawing, 1);
}

/// Stacks what a card shows from the top down.
class CardBuilder {
 public:
  CardBuilder(const PopoverColors& colors, double width, bool isOpen,
              const std::function<void()>& turn)
      : colors_(colors), width_(width), isOpen_(isOpen), turn_(turn) {}

  NSView* build(const ProviderCard& card) {
    speakAs(view_, NSAccessibilityGroupRole, card.title);
    header(card);
    for (const CardBlock& block : card.blocks) {
      std::visit(*this, block);
      isFirst_ = false;
    }
    [view_ setFrameSize:NSMakeSize(width_, y_ + bottom_)];
    MGView* const view = view_;
    __weak MGView* const weak = view;
    view.draw = [weak, &colors = colors_] {
      drawPanel(weak, MarigoldTheme::cardRadius, colors.card, colors.cardEdge);
    };
    return view;
  }

  // A window: one thing to speak, whatever it consists of.
  void operator()(const CardRow& row) {
    gap(metrics::blockGap);
    MGView* const all = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, inner(), 0)];
    speakAs(all, NSAccessibilityStaticTextRole, row.spoken);
    NSTextField* const value =
        makeLabel(row.value, {.weight = Weight::semibold, .color = colors_.text});
    value.font = toMac(
        FontStyle{.size = metrics::fontSize, .weight = Weight::semibold, .monospacedDigits = true});
    [value sizeToFit];
    NSTextField* const label = makeLabel(row.label, {.color = colors_.text});
    const double room = inner() - NSWidth(value.frame) - metrics::buttonGap;
    shorten(label, room);
    double y = std::max(NSHeight(value.frame), NSHeight(label.frame));
    place(label, all, 0, 0);
    place(value, all, inner() - NSWidth(value.frame), 0);
    MGView* const bar =
        [[MGView alloc] initWithFrame:NSMakeRect(0, 0, inner(), metrics::barHeight)];
    __weak MGView* const weak = bar;
    bar.draw = [weak, shown = row.bar, &colors = colors_] { paintBar(weak, shown, colors); };
    y += metrics::aboveBar;
    place(bar, all, 0, y);
    y += metrics::barHeight;
    if (!row.subLabel.empty()) {
      NSTextField* const below =
          makeLabel(row.subLabel, {.size = metrics::subLabelSize, .color = colors_.secondary});
      shorten(below, inner());
      y += metrics::belowBar;
      place(below, all, 0, y);
      y += NSHeight(below.frame);
    }
    [all setFrameSize:NSMakeSize(inner(), y)];
    for (NSView* part in all.subviews) {
      part.accessibilityElement = NO;
    }
    put(all);
  }

  void operator()(const CardText& text) {
    gap(metrics::blockGap);
    if (text.separated) {
      MGView* const line = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, inner(), 1)];
      __weak MGView* const weak = line;
      line.draw = [weak, &colors = colors_] {
        [toMac(colors.separator) setFill];
        [[NSBezierPath bezierPathWithRect:weak.bounds] fill];
      };
      place(line, view_, metrics::cardSide, y_);
      y_ += metrics::aboveSeparated;
    }
    const bool primary = text.tone == CardText::Tone::primary;
    const double size =
        text.tone == CardText::Tone::caption ? metrics::captionSize : metrics::textSize;
    NSTextField* const label = makeLabel(
        text.text, {.size = size, .color = primary ? colors_.text : colors_.secondary}, inner());
    label.selectable = YES;
    put(label);
  }

  void operator()(const CardButton& button) {
    gap(metrics::buttonGap);
    NSButton* const made = makeTitleButton(button.title, [press = button.press] { press(); });
    made.enabled = !button.busy;
    made.identifier = toMac("button " + button.title);
    put(made);
  }

  void operator()(const CardDisclosure& disclosure) {
    gap(metrics::disclosureGap);
    NSButton* const made =
        makeTitleButton((isOpen_ ? "▾ " : "▸ ") + disclosure.title, [turn = turn_] { turn(); });
    made.bordered = NO;
    made.font = toMac(FontStyle{.size = metrics::fontSize * metrics::captionSize});
    made.contentTintColor = toMac(colors_.secondary);
    made.identifier = toMac("disclosure " + disclosure.title);
    made.accessibilityLabel = toMac(disclosure.title);
    made.accessibilityValue = isOpen_ ? @YES : @NO;
    [made sizeToFit];
    [made setFrameSize:NSMakeSize(NSWidth(made.frame), metrics::disclosureHeight)];
    put(made);
    for (std::size_t i = 0; isOpen_ && i < disclosure.paragraphs.size(); ++i) {
      gap(metrics::paragraphGap);
      put(makeLabel(disclosure.paragraphs[i],
                    {.size = metrics::captionSize, .color = colors_.secondary}, inner()));
    }
    bottom_ = isOpen_ ? metrics::cardBottom : metrics::belowDisclosure;
  }

 private:
  [[nodiscard]] double inner() const { return width_ - 2 * metrics::cardSide; }

  void gap(double above) {
    y_ += isFirst_ ? std::min(metrics::belowCardTitle, above) : above;
    bottom_ = metrics::cardBottom;
  }

  void put(NSView* block) {
    place(block, view_, metrics::cardSide, y_);
    y_ += NSHeight(block.frame);
  }

  static void shorten(NSTextField* label, double room) {
    label.lineBreakMode = NSLineBreakByTruncatingTail;
    if (NSWidth(label.frame) > room) {
      label.toolTip = label.stringValue;
      [label setFrameSize:NSMakeSize(std::max(room, 0.0), NSHeight(label.frame))];
    }
  }

  // Plan and badge stand beside the title; the plan gives way.
  void header(const ProviderCard& card) {
    [view_ setFrameSize:NSMakeSize(width_, 0)];
    NSTextField* const title = makeLabel(
        card.title,
        {.size = metrics::cardTitleSize, .weight = Weight::semibold, .color = colors_.text});
    place(title, view_, metrics::cardSide, y_);
    const double middle = y_ + NSHeight(title.frame) / 2;
    double end = width_ - metrics::cardSide;
    if (card.badge) {
      NSView* const badge = makeBadge(*card.badge);
      end -= NSWidth(badge.frame);
      place(badge, view_, end, middle - NSHeight(badge.frame) / 2);
      end -= metrics::besideTitle;
    }
    if (!card.plan.empty()) {
      NSTextField* const plan =
          makeLabel(card.plan, {.size = metrics::planSize, .color = colors_.secondary});
      const double left = metrics::cardSide + NSWidth(title.frame) + metrics::besideTitle;
      shorten(plan, end - left);
      place(plan, view_, left, y_ + title.font.ascender - plan.font.ascender);
    }
    y_ += NSHeight(title.frame);
  }

  NSView* makeBadge(const CardBadge& badge) {
    const bool warns = badge.tone == CardBadge::Tone::warning;
    NSTextField* const text = makeLabel(
        badge.text, {.size = metrics::badgeSize,
                     .color = warns ? colors_.warningBadgeText : colors_.neutralBadgeText});
    shorten(text, width_ / 2);
    const NSSize size = NSMakeSize(NSWidth(text.frame) + 2 * metrics::besideBadge,
                                   NSHeight(text.frame) + 2 * metrics::aroundBadge);
    MGView* const view = [[MGView alloc] initWithFrame:NSMakeRect(0, 0, size.width, size.height)];
    place(text, view, metrics::besideBadge, metrics::aroundBadge);
    __weak MGView* const weak = view;
    const Color ground = warns ? colors_.warningBadge : colors_.neutralBadge;
    view.draw = [weak, ground] { drawPanel(weak, NSHeight(weak.bounds) / 2, ground, ground); };
    return view;
  }

  const PopoverColors& colors_;  // of the theme, which lasts
  double width_;
  bool isOpen_;
  const std::function<void()>& turn_;
  MGView* const view_ = [[MGView alloc] initWithFrame:NSZeroRect];
  double y_ = metrics::cardTop;
  double bottom_ = metrics::cardBottom;
  bool isFirst_ = true;
};

}  // namespace

NSView* makeCard(const ProviderCard& card, const PopoverColors& colors, double width, bool isOpen,
                 const std::function<void()>& turn) {
  return CardBuilder(colors, width, isOpen, turn).build(card);
}

}  // namespace marigold
