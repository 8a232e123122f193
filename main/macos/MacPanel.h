#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "macos/MacSettings.h"
#include "macos/MacViews.h"
#include "ports/PopoverContent.h"

@class MGPanelView;

namespace marigold {

/// All that the popover holds: a header, and below it a page that scrolls. What shows the same as
/// before stays as it is, with the keyboard in it.
class MacPanel final {
 public:
  /// `paintsGround` is for pictures; in a popover the system paints it.
  explicit MacPanel(bool paintsGround = false);
  MacPanel(const MacPanel&) = delete;
  MacPanel& operator=(const MacPanel&) = delete;
  ~MacPanel();

  /// Called at Escape where it does not lead back.
  std::function<void()> onCancel;
  /// Called after `height` changed by what the user opened or closed.
  std::function<void()> onHeightChange;

  void take(const PopoverContent& content);
  [[nodiscard]] NSView* view() const;
  /// What it needs to show everything.
  [[nodiscard]] double height() const { return height_; }
  void setHeight(double height);
  void scrollToTop();

 private:
  struct Card {
    ProviderCard shown;
    bool isOpen = false;
    NSView* view = nil;
  };
  struct Row {
    SettingsRow shown;
    RowState state;
    NSView* view = nil;
  };
  using Rows = std::map<std::string, Row>;

  void keys();
  void show();
  void showHeader();
  [[nodiscard]] NSArray<NSView*>* cards();
  [[nodiscard]] NSArray<NSView*>* sections();
  void addRow(const SettingsRow& row, int depth, Rows& rows, std::vector<NSView*>& views);
  [[nodiscard]] RowUse useOf(const SettingsRow& row);
  [[nodiscard]] NSView* makeSection(const SettingsSection& section,
                                    const std::vector<NSView*>& rows) const;
  void stack(NSArray<NSView*>* views, double gap);
  void turn(std::set<std::string>& open, const std::string& key);

  MGPanelView* const view_;
  MGView* const header_;
  NSScrollView* const scroll_;
  MGView* const page_;
  PopoverContent content_;
  std::vector<Card> cards_;
  Rows rows_;
  std::set<std::string> open_;  ///< cards whose disclosure is open, and rows whose details are
  std::string asked_;           ///< the row whose question is asked
  bool headerStands_ = false;   ///< the header shows what the content says
  bool openedFirst_ = false;    ///< the first row with details has been opened by itself
  double height_ = 0;
};

}  // namespace marigold
