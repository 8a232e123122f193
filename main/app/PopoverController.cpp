#include "app/PopoverController.h"

#include <functional>
#include <utility>
#include <vector>

#include "PopoverView.h"
#include "popover/AboutText.h"
#include "popover/SettingsForm.h"

namespace marigold {

namespace {

constexpr Seconds doneShownFor{1};

// Has `then` done after every use of these rows.
void follow(std::vector<SettingsRow>& rows, const std::function<void()>& then) {
  for (SettingsRow& row : rows) {
    row.use = Handler([use = row.use, then](int choice) {
      use(choice);
      then();
    });
    follow(row.details, then);
  }
}

}  // namespace

PopoverController::PopoverController(Services services) : s_(std::move(services)) {
  s_.popover.onClosed = [this] { closed(); };
}

PopoverController::~PopoverController() {
  stop();
}

void PopoverController::stop() {
  s_.popover.onClosed = nullptr;
  doneMark_.cancel();
}

void PopoverController::open() {
  s_.store.refreshLoginItemStatus();
  s_.application.activate();
  update();
  s_.popover.open();
  if (onShownChanged) {
    onShownChanged();
  }
}

void PopoverController::refresh() {
  if (isShown()) {
    update();
  }
}

void PopoverController::closed() {
  page_ = PopoverContent::Page::cards;
  refresh_ = PopoverContent::Refresh::idle;
  if (onShownChanged) {
    onShownChanged();
  }
}

void PopoverController::update() {
  followRefresh();
  PopoverContent next = content();
  if (next != content_) {
    content_ = std::move(next);
    s_.popover.setContent(content_);
  }
}

void PopoverController::followRefresh() {
  using Refresh = PopoverContent::Refresh;
  if (s_.store.refreshInFlight()) {
    refresh_ = Refresh::running;
    doneMark_.cancel();
  } else if (refresh_ == Refresh::running) {
    refresh_ = Refresh::done;
    doneMark_ = s_.loop.callAfter(doneShownFor, [this] {
      refresh_ = Refresh::idle;
      refresh();
    });
  }
}

void PopoverController::show(PopoverContent::Page page) {
  page_ = page;
  refresh();
}

PopoverContent PopoverController::content() {
  const AppearanceSettings looks = s_.appearance.settings();
  const MarigoldTheme theme{
      .scheme = looks.darkWindows ? MarigoldTheme::Scheme::dark : MarigoldTheme::Scheme::light,
      .contrast = looks.increaseContrast ? MarigoldTheme::Contrast::increased
                                         : MarigoldTheme::Contrast::standard,
      .reduceMotion = looks.reduceMotion};
  return worded({.page = page_,
                 .theme = theme,
                 .refresh = refresh_,
                 .cards = cards(theme.scheme),
                 .settings = settings(theme.scheme),
                 .refreshNow = Handler([this](int) { s_.store.refreshNow(); }),
                 .showPage = Handler([this](int page) {
                   show(page == static_cast<int>(PopoverContent::Page::settings)
                            ? PopoverContent::Page::settings
                            : PopoverContent::Page::cards);
                 })},
                s_.traits.texts);
}

std::vector<ProviderCard> PopoverController::cards(MarigoldTheme::Scheme scheme) {
  const Preferences& chosen = s_.store.preferences();
  std::vector<ProviderCard> cards;
  for (const ProviderID provider : s_.store.visibleProviders()) {
    const auto& snapshot = s_.store.snapshot(provider);
    cards.push_back(
        providerCard(provider, snapshot ? &*snapshot : nullptr,
                     {.now = s_.loop.date(),
                      .localTime = s_.localTime,
                      .scheme = scheme,
                      .ringColors = chosen.ringColors(),
                      .accent = chosen.accent(provider),
                      .looksIn = s_.traits.looksIn.at(static_cast<std::size_t>(provider)),
                      .claudeReadLatched = s_.store.claudeReadLatched(),
                      .claudeYetFetched = s_.store.claudeYetFetched(),
                      .claudeRetrying = s_.store.claudeRetrying(),
                      .retryClaude = Handler([this](int) { s_.store.retryClaudeRead(); }),
                      .turnOnClaude = Handler([this](int) { s_.store.turnOnClaude(); })}));
  }
  if (cards.empty()) {
    cards.push_back(
        nothingVisibleCard(Handler([this](int) { show(PopoverContent::Page::settings); })));
  }
  return cards;
}

SettingsForm PopoverController::settings(MarigoldTheme::Scheme scheme) {
  UsageStore& store = s_.store;
  SettingsForm form = settingsForm(
      {.preferences = store.preferences(),
       .snapshot =
           [&store](ProviderID provider) {
             const auto& snapshot = store.snapshot(provider);
             return snapshot ? &*snapshot : nullptr;
           },
       .scheme = scheme,
       .offersBarColors = s_.traits.offersBarColors,
       .launchAtLogin = store.launchAtLogin(),
       .launchRequiresApproval = store.launchAtLoginRequiresApproval(),
       .launchAtLoginError = store.launchAtLoginError(),
       .actions = {
           .setLaunchAtLogin = [&store](bool on) { store.setLaunchAtLogin(on); },
           .openLoginItemSettings = [&store] { store.openLoginItemSettings(); },
           .setReadsClaude =
               [&store](bool on) { on ? store.turnOnClaude() : store.turnOffClaude(); },
           .clearStoredData = [&store] { store.clearStoredData(); },
           .showAbout = [this] { s_.application.showAbout(worded(aboutPanel(), s_.traits.texts)); },
           .quit = [this] { s_.application.quit(); }}});
  // In the same turn: a control is to show what became of its use, not first what was before.
  for (SettingsSection& section : form.sections) {
    follow(section.rows, [this] { refresh(); });
  }
  return form;
}

}  // namespace marigold
