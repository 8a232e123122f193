#include "popover/DesktopTexts.h"

#include <algorithm>
#include <array>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "claude/ClaudeTexts.h"
#include "popover/AboutText.h"
#include "popover/ClaudeDisclosure.h"
#include "popover/SettingsForm.h"

namespace marigold {

namespace {

struct Wording {
  std::string_view mac;
  std::string_view onLinux;
};

constexpr std::array wordings{
    Wording{.mac = clearStoredDataExplanation,
            .onLinux = "Forget the usage numbers cached on this computer for every provider: "
                       "Claude, Codex and Grok. Your Claude login is never stored on disk by "
                       "Marigold, so there is nothing of it to clear."},
    Wording{.mac = launchApprovalText,
            .onLinux = "Allow Marigold in the settings of your desktop for what starts at login."},
    Wording{.mac = launchApprovalButton, .onLinux = "Open login settings"},
    Wording{.mac = aboutCredits, .onLinux = aboutCreditsWithQt},
};

class Words {
 public:
  explicit Words(DesktopTexts texts) : texts_(texts) {}

  void change(std::string& text) const {
    if (const std::string_view other = texts_(text); other != text) {
      text = std::string(other);
    }
  }
  void change(CardText& text) const { change(text.text); }
  void change(CardRow& row) const {
    change(row.label);
    change(row.spoken);
  }
  void change(CardButton& button) const { change(button.title); }
  void change(CardDisclosure& disclosure) const {
    change(disclosure.title);
    change(disclosure.paragraphs);
  }
  void change(CardBlock& block) const {
    std::visit([this](auto& held) { change(held); }, block);
  }
  void change(ProviderCard& card) const {
    if (card.badge) {
      change(card.badge->text);
    }
    change(card.blocks);
  }
  void change(PopoverHeader& header) const {
    for (std::string* const text :
         {&header.title, &header.back, &header.refresh, &header.settings}) {
      change(*text);
    }
  }
  void change(SettingsOption& option) const { change(option.title); }
  void change(Confirmation& asked) const {
    for (std::string* const text :
         {&asked.question, &asked.explanation, &asked.confirm, &asked.cancel}) {
      change(*text);
    }
  }
  void change(SettingsRow& row) const {
    change(row.title);
    change(row.explanation);
    change(row.details);
    change(row.detailsTitle);
    if (auto* const choice = std::get_if<SettingsChoice>(&row.control)) {
      change(choice->options);
    } else if (auto* const moves = std::get_if<SettingsMoves>(&row.control)) {
      change(moves->up);
      change(moves->down);
    } else if (auto* const button = std::get_if<SettingsButton>(&row.control)) {
      change(button->title);
      if (button->confirmation) {
        change(*button->confirmation);
      }
    }
  }
  void change(SettingsSection& section) const {
    change(section.title);
    change(section.rows);
  }
  void change(MenuItem& item) const {
    change(item.title);
    change(item.tooltip);
    change(item.items);
  }
  template <class T>
  void change(std::vector<T>& all) const {
    for (T& one : all) {
      change(one);
    }
  }

 private:
  DesktopTexts texts_;
};

}  // namespace

std::string_view macTexts(std::string_view text) {
  return text;
}

std::string_view linuxTexts(std::string_view text) {
  if (const auto other = claudeTextOnLinux(text)) {
    return *other;
  }
  if (const auto other = claudeDisclosureOnLinux(text)) {
    return *other;
  }
  const auto* const found = std::ranges::find(wordings, text, &Wording::mac);
  return found != wordings.end() ? found->onLinux : text;
}

PopoverContent worded(PopoverContent content, DesktopTexts texts) {
  const Words words(texts);
  words.change(content.header);
  words.change(content.cards);
  words.change(content.settings.title);
  words.change(content.settings.sections);
  return content;
}

std::vector<MenuItem> worded(std::vector<MenuItem> items, DesktopTexts texts) {
  Words(texts).change(items);
  return items;
}

AboutPanel worded(AboutPanel about, DesktopTexts texts) {
  const Words words(texts);
  words.change(about.title);
  words.change(about.credits);
  return about;
}

ProviderSnapshot worded(const ProviderSnapshot& snapshot, DesktopTexts texts) {
  const std::string reason(texts(snapshot.health.reason()));
  switch (snapshot.health.kind()) {
    case Health::Kind::stale:
      return snapshot.withHealth(Health::stale(reason));
    case Health::Kind::reconnect:
      return snapshot.withHealth(Health::reconnect(reason));
    case Health::Kind::notInstalled:
      return snapshot.withHealth(Health::notInstalled(reason));
    case Health::Kind::rateLimited:
    case Health::Kind::serverError:
    case Health::Kind::ok:
    case Health::Kind::turnedOff:
      break;
  }
  return snapshot;
}

}  // namespace marigold
