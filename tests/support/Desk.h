#pragma once

#include "ports/Appearance.h"
#include "ports/ApplicationControl.h"
#include "ports/Popover.h"
#include "ports/StatusItem.h"

namespace marigold::test {

/// Every port that shows something. Writes down what it is asked.
struct Desk final : StatusBar, Popover, Appearance, ApplicationControl {
  using Journal = std::vector<std::string>;
  struct Item final : StatusItem {
    explicit Item(Desk& owner) : desk(owner) {}
    void show(const StatusItemContent& next) override { desk.shown.push_back(next); }
    [[nodiscard]] DarkMenuBar ownGround() const override { return ground; }
    void openMenu(std::vector<MenuItem> items) override {
      desk.journal.push_back("menu: " + items.front().title);
    }
    Desk& desk;
    DarkMenuBar ground = DarkMenuBar::unknown;
  };
  std::unique_ptr<StatusItem> makeItem() override {
    auto made = refusals-- > 0 ? nullptr : std::make_unique<Item>(*this);
    item = made.get();
    return made;
  }
  void setContent(const PopoverContent& next) override {
    content = next;
    ++changes;
  }
  void open() override {
    journal.emplace_back("popover");
    isOpen = true;
  }
  void close() override {
    journal.emplace_back("close");
    isOpen = false;
    onClosed();
  }
  [[nodiscard]] bool isShown() const override { return isOpen; }
  [[nodiscard]] AppearanceSettings settings() const override { return looks; }
  void installMainMenu() override { journal.emplace_back("main menu"); }
  void activate() override { journal.emplace_back("activate"); }
  void showAbout(const AboutPanel& panel) override {
    about = panel;
    journal.push_back(about.name + " " + about.version + "\n");
  }
  void quit() override { journal.emplace_back("quit"); }
  void leaveRegardless(Seconds after) override {
    journal.push_back("leave in " + std::to_string(after.count()));
  }

  Journal journal;
  int refusals = 0;  // to make an item
  Item* item = nullptr;
  std::vector<StatusItemContent> shown;
  bool isOpen = false;
  PopoverContent content;
  int changes = 0;  // of it
  AppearanceSettings looks;
  AboutPanel about;
};

}  // namespace marigold::test
