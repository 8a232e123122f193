#pragma once

#include <array>

#include "ports/PopoverContent.h"

// What the popover shows as text, for tests to compare at a glance.

namespace marigold::test {

/// "-" a secondary text, "=" a caption, "---" a hairline above, "(title)" a button, "…" in it while
/// it is busy, ">" a disclosure's title.
inline std::string told(const CardBlock& block) {
  if (const auto* const text = std::get_if<CardText>(&block)) {
    constexpr std::array tones{"", "- ", "= "};
    return std::string(text->separated ? "--- " : "") +
           tones.at(static_cast<std::size_t>(text->tone)) + text->text;
  }
  if (const auto* const row = std::get_if<CardRow>(&block)) {
    std::string all = row->label + " " + row->value + " ";
    if (row->bar.fill) {
      all += row->bar.fill->opacity == 1 ? "solid" : "dim";
    } else {
      all += "none";
    }
    return all + (row->subLabel.empty() ? "" : " " + row->subLabel);
  }
  if (const auto* const button = std::get_if<CardButton>(&block)) {
    return "(" + button->title + (button->busy ? "…)" : ")");
  }
  return "> " + std::get<CardDisclosure>(block).title;
}

/// A line for each block, below one for the header: "Claude, Max 5x [off]", with "!" in the badge
/// of a warning.
inline std::string told(const ProviderCard& card) {
  std::string all = card.title + (card.plan.empty() ? "" : ", " + card.plan);
  if (card.badge) {
    all += " [" + card.badge->text + (card.badge->tone == CardBadge::Tone::warning ? "!]" : "]");
  }
  for (const CardBlock& block : card.blocks) {
    all += "\n" + told(block);
  }
  return all;
}

inline std::string told(const SettingsRow& row, const std::string& indent = "") {
  std::string all = indent + (row.enabled ? "" : "~") + row.key + ": " + row.title;
  if (const auto* const toggle = std::get_if<SettingsSwitch>(&row.control)) {
    all += toggle->on ? " on" : " off";
  } else if (const auto* const choice = std::get_if<SettingsChoice>(&row.control)) {
    for (const SettingsOption& option : choice->options) {
      const bool chosen = &option - choice->options.data() == choice->selected;
      all += (chosen ? " *" : " ") + option.title;
    }
  } else if (const auto* const moves = std::get_if<SettingsMoves>(&row.control)) {
    all += moves->canMoveUp ? " " + moves->up : "";
    all += moves->canMoveDown ? " " + moves->down : "";
  } else if (const auto* const button = std::get_if<SettingsButton>(&row.control)) {
    all += " (" + button->title + (button->leadsOn ? ">)" : ")");
    if (const auto& asked = button->confirmation) {
      all += " " + asked->question + " " + asked->explanation + " (" + asked->confirm + ") (" +
             asked->cancel + ")";
    }
  }
  all += row.explanation.empty() ? "\n" : " // " + row.explanation + "\n";
  for (const SettingsRow& detail : row.details) {
    all += told(detail, indent + "  ");
  }
  return all;
}

/// A line for each row, below one for each section: "key: title value // explanation", "~" before
/// one that cannot be used, "*" before what is chosen.
inline std::string told(const SettingsForm& form) {
  std::string all;
  for (const SettingsSection& section : form.sections) {
    all += section.title + "\n";
    for (const SettingsRow& row : section.rows) {
      all += told(row);
    }
  }
  return all;
}

/// Every text of it, those that are only spoken or still closed too.
inline std::string everyText(const PopoverContent& content) {
  std::string all = told(content.settings);
  for (const ProviderCard& card : content.cards) {
    all += told(card) + "\n";
    for (const CardBlock& block : card.blocks) {
      if (const auto* const row = std::get_if<CardRow>(&block)) {
        all += row->spoken + "\n";
      } else if (const auto* const closed = std::get_if<CardDisclosure>(&block)) {
        for (const std::string& paragraph : closed->paragraphs) {
          all += paragraph + "\n";
        }
      }
    }
  }
  return all;
}

/// The row of a form with this key; null without one.
inline const SettingsRow* row(const SettingsForm& form, const std::string& key) {
  for (const SettingsSection& section : form.sections) {
    for (const SettingsRow& row : section.rows) {
      if (row.key == key) {
        return &row;
      }
      for (const SettingsRow& detail : row.details) {
        if (detail.key == key) {
          return &detail;
        }
      }
    }
  }
  return nullptr;
}

}  // namespace marigold::test
