#include "app/TextForm.h"

#include <ranges>
#include <string_view>
#include <utility>

#include "base/PrintableText.h"

namespace marigold {

namespace {

class TextStatusItem final : public StatusItem {
 public:
  explicit TextStatusItem(std::function<void(std::string)> print) : print_(std::move(print)) {}

  void show(const StatusItemContent& content) override {
    std::string news = content.tooltipWithoutAges + "\n" + content.label;
    if (news != told_) {
      told_ = std::move(news);
      print_(textForm(content));
    }
  }
  void openMenu(std::vector<MenuItem> /*items*/) override {}

 private:
  std::function<void(std::string)> print_;
  std::string told_;
};

}  // namespace

std::string textForm(const StatusItemContent& content) {
  std::string text;
  for (const auto line : std::views::split(content.tooltip, '\n')) {
    text += printable(std::string_view(line)) + "\n";
  }
  if (!content.label.empty()) {
    text += "mark: " + printable(content.label) + "\n";
  }
  return text;
}

std::unique_ptr<StatusItem> TextStatusBar::makeItem() {
  return std::make_unique<TextStatusItem>(print_);
}

}  // namespace marigold
