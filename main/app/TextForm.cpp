#include "app/TextForm.h"

#include <utility>

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
  std::string text = content.tooltip + "\n";
  if (!content.label.empty()) {
    text += "mark: " + content.label + "\n";
  }
  return text;
}

std::unique_ptr<StatusItem> TextStatusBar::makeItem() {
  return std::make_unique<TextStatusItem>(print_);
}

}  // namespace marigold
