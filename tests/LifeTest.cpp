// A month of a machine and its user: everything that may happen to them, at random. A fault tells
// its seed.

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>

#include "life/Machine.h"

namespace marigold {
namespace {

namespace fs = std::filesystem;
using test::Pace;

class Life : public test::Machine {
 public:
  using Machine::Machine;

  void live(int days) {
    for (int day = 0; day < days && faults.empty(); ++day) {
      for (int i = 0; i < 40 && faults.empty(); ++i) {
        look();
        happen();
        if (luck_.chance(0.25)) {  // the next comes while this is under way
          for (int steps = luck_.below(6); steps > 0; --steps) {
            (void)step();
          }
        } else {
          pass(luck_.chance(0.3) ? 0.1 * luck_.below(40) : luck_.gap(300));
        }
      }
      night();
    }
  }

 private:
  // What may happen.

  using Act = void (Life::*)();
  void happen() {
    struct Entry {
      const char* name;
      Act what;
      int weight;
    };
    static constexpr std::array acts{Entry{"Codex's work", &Life::codexWorks, 8},
                                     Entry{"Grok's work", &Life::grokWorks, 6},
                                     Entry{"meddling", &Life::meddle, 3},
                                     Entry{"a storm", &Life::storm, 1},
                                     Entry{"a click", &Life::click, 4},
                                     Entry{"the menu", &Life::useMenu, 4},
                                     Entry{"a control", &Life::useControl, 4},
                                     Entry{"attention", &Life::attend, 3},
                                     Entry{"a sleep", &Life::sleepAndWake, 1},
                                     Entry{"the clock", &Life::setClock, 2},
                                     Entry{"weather", &Life::changeWeather, 3},
                                     Entry{"trouble", &Life::changeTrouble, 1},
                                     Entry{"a hang", &Life::hang, 1},
                                     Entry{"new looks", &Life::changeLooks, 1},
                                     Entry{"another's choice", &Life::othersChoose, 1}};
    int pick = luck_.below(43);
    const auto* const entry =
        std::ranges::find_if(acts, [&](const Entry& each) { return (pick -= each.weight) < 0; });
    act(entry->name, entry->what);
  }
  void act(const char* name, Act what) {
    lastAct_ = name;
    files_.now = date();
    (this->*what)();
    watch(true);
  }
  void asks(Seconds interval) { anthropic_.asked.push_back(interval.count()); }

  void codexWorks() { files_.codexWorks(); }
  void grokWorks() { files_.grokWorks(); }
  void meddle() { files_.meddle(); }
  void storm() {
    const int before = fileReads_;
    const Instant start = now();
    files_.lastHeard = distantPast;
    for (int i = 0; i < 150; ++i) {
      codexWorks();
      grokWorks();
      pass(0.1);
      files_.now = date();
    }
    expect(fileReads_ - before <= 2 * (15 + 6), "read too often");
    pass(33);  // the longest pause between two reads
    const auto& codex = published(ProviderID::codex);
    const bool hung =
        std::ranges::any_of(hangsUntil_, [&](const auto& one) { return one.second > start; });
    expect(hung || (codex && codex->capturedAt >= files_.lastHeard), "a change is not told soon");
  }
  void click() {
    if (run_->desk.item != nullptr) {
      asks(onDemandMinInterval);
      using Button = StatusItemClick::Button;
      run_->desk.item->onClick({.button = luck_.chance(0.2) ? Button::right : Button::left});
    }
  }
  void useMenu() {
    if (run_->desk.item == nullptr) {
      return;
    }
    asks(onDemandMinInterval);
    std::vector<MenuItem> items = run_->desk.item->onMenuRead(luck_.chance(0.7));
    for (std::size_t i = 0; i < items.size(); ++i) {
      const std::vector<MenuItem> inside = items[i].items;
      items.insert(items.end(), inside.begin(), inside.end());
    }
    const MenuItem& item = luck_.of(items);
    if (item.action && item.enabled) {
      asks(item.title == "Refresh Now" ? Seconds{Pace::user} : onDemandMinInterval);
      choose(item.action);
    }
  }
  void useControl() {
    const PopoverContent content = run_->desk.content;
    const int what = run_->desk.isOpen ? luck_.below(4) : -1;
    if (what < 0) {
      click();
    } else if (what == 0) {
      asks(Seconds{Pace::user});
      content.refreshNow();
    } else if (what == 1) {
      content.showPage(luck_.below(2));
    } else if (what == 2) {
      for (const CardBlock& block : luck_.of(content.cards).blocks) {
        if (const auto* const button = std::get_if<CardButton>(&block)) {
          asks(Seconds{Pace::retry});
          choose([&] { button->press(); });
        }
      }
    } else {
      const SettingsRow* row = &luck_.of(luck_.of(content.settings.sections).rows);
      row = row->details.empty() || luck_.chance(0.2) ? row : &luck_.of(row->details);
      const auto* const toggle = std::get_if<SettingsSwitch>(&row->control);
      if (row->enabled) {
        choose([&] { row->use(toggle != nullptr ? !toggle->on : luck_.below(3)); });
      }
    }
  }
  // Does what may turn Claude off or on, or forget everything.
  template <class Work>
  void choose(const Work& work) {
    const bool wasOff = isOff();
    troubled(work);
    if (isOff() != wasOff || !store().isPresent(ProviderID::codex)) {
      anthropic_.forget();
      asks(isOff() ? onDemandMinInterval : Seconds{Pace::retry});
      for (const ProviderID provider : allCases<ProviderID>) {
        published(provider) = store().snapshot(provider);
      }
    }
    anthropic_.offAndSettled &= isOff();
  }
  void attend() {
    asks(onDemandMinInterval);
    constexpr std::array events{AttentionEvent::screenWake, AttentionEvent::spaceChange,
                                AttentionEvent::wake};
    run_->attention.tell(luck_.of(events));
  }
  void sleepAndWake() {
    const Seconds length{36'000 * luck_.fraction()};
    if (luck_.chance(0.5)) {  // with something under way
      attend();
      hangsUntil_[&run_->claude] = now() + continuousDuration(length);
    }
    run_->loop.sleep(length);
    if (luck_.chance(0.5)) {
      settle();
    }
    attend();
  }
  // By hand, by a server or by travelling.
  void setClock() {
    const bool travels = luck_.chance(0.3);
    times_.ahead = travels ? Seconds{1800.0 * (luck_.below(50) - 24)} : times_.ahead;
    const double step =
        luck_.chance(0.5) ? 3600.0 * (luck_.below(72) - 24) : luck_.below(1200) - 600;
    run_->loop.setDate(date() + Seconds{travels ? 0 : step});
    run_->attention.tell(AttentionEvent::clockChange);
  }
  void changeWeather() { anthropic_.changeWeather(); }
  void changeTrouble() {
    trouble_ = luck_.chance(0.5) ? Trouble::none : static_cast<Trouble>(luck_.below(3));
    for (const char* const place : {"/cache", "/config"}) {
      fs::create_directories(home_.path() + place);
      fs::permissions(home_.path() + place, trouble_ == Trouble::readOnly
                                                ? fs::perms::owner_read | fs::perms::owner_exec
                                                : fs::perms::owner_all);
    }
  }
  void hang() {
    std::array all{&run_->claude, &run_->codex, &run_->grok};
    hangsUntil_[luck_.of(all)] = now() + continuousDuration(Seconds{400 * luck_.fraction()});
  }
  void changeLooks() {
    run_->desk.looks = {.darkMenuBar = static_cast<DarkMenuBar>(luck_.below(3)),
                        .increaseContrast = luck_.chance(0.5),
                        .reduceMotion = luck_.chance(0.3),
                        .darkWindows = luck_.chance(0.5)};
    if (run_->desk.onChange) {
      run_->desk.onChange();
    }
  }
  void othersChoose() {
    troubled([&] { run_->defaults.set("menubar.grok", luck_.chance(0.5)); });
    run_->defaults.onChange();
  }

  // At each day's end all is quiet for a while: everything must be known then, and no more be held
  // than on other days.
  void night() {
    if (luck_.chance(0.5)) {
      act("the night's sleep", &Life::sleepAndWake);
    }
    if (run_->desk.isOpen) {
      act("the last click", &Life::click);
    }
    if (files_.isAway()) {
      act("the files' return", &Life::meddle);
    }
    anthropic_.clearUp();
    pass(8000);  // longer than any hold
    const int reads = anthropic_.reads;
    turns_ = 0;
    pass(1500);
    expect(turns_ <= 8 * 2 + 25 * 5,
           "woke up too often");  // eight refreshes; what each minute changes
    expect(isOff() || anthropic_.pace.latched ||
               (anthropic_.reads > reads &&
                published(ProviderID::claude)->percent("5h") == anthropic_.said),
           "Claude's reading is not told");
    files_.now = date();
    expect(files_.isTold(published(ProviderID::codex), published(ProviderID::grok)),
           "the newest reading is not told");
    files_.prune();
    pass(200);
    const auto entries = [](const std::string& in) {
      return std::distance(fs::directory_iterator(in), fs::directory_iterator());
    };
    open_.push_back(entries("/proc/self/fd"));
    memory_.push_back(::mallinfo2().uordblks);
    expect(open_.back() == open_.front(), "descriptors are left open");
    expect(!fs::exists(home_.path() + "/cache") || entries(home_.path() + "/cache") <= 3, "litter");
    // The allocator's own lists fill within the first days.
    expect(memory_.back() < memory_.at(std::min<std::size_t>(memory_.size() - 1, 9)) + 49'152,
           "memory grows");
    if (luck_.chance(0.2)) {
      restart();
    }
  }

  std::vector<std::ptrdiff_t> open_;  // how many descriptors, day by day
  std::vector<std::size_t> memory_;
};

class LifeTest : public testing::TestWithParam<unsigned> {};

TEST_P(LifeTest, KeepsEveryRuleForAMonth) {
  Life life(GetParam());
  life.live(30);
  for (const std::string& fault : life.faults) {
    ADD_FAILURE() << "seed " << GetParam() << ": " << fault;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, LifeTest, testing::Range(0U, 5U));

}  // namespace
}  // namespace marigold
