#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <gtest/gtest.h>

#include "support/ChildProcess.h"
#include "support/TemporaryDirectory.h"
#include "support/ToolkitApplication.h"

namespace marigold::test {

/// A token-count line written now, to the millisecond like the real tool's. Both windows reset in
/// four days.
inline std::string tokenCount(double fiveHour, double weekly) {
  const QDateTime now = QDateTime::currentDateTimeUtc();
  const std::string stamp = now.toString(Qt::ISODateWithMs).toStdString();
  const std::string reset = std::to_string(now.addDays(4).toSecsSinceEpoch());
  return R"({"timestamp":")" + stamp +
         R"(","type":"event_msg","payload":{"type":"token_count","rate_limits":{"primary":{)" +
         R"("used_percent":)" + std::to_string(fiveHour) + R"(,"window_minutes":300,"resets_at":)" +
         reset + R"(},"secondary":{"used_percent":)" + std::to_string(weekly) +
         R"(,"window_minutes":10080,"resets_at":)" + reset + R"(},"plan_type":"plus"}}})" + "\n";
}

/// Adds `text` to a file, which is made with its directories if need be.
inline void append(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::app) << text;
}

/// The program as it was built or, where MARIGOLD_INSTALLED names it, as it was installed.
inline std::string program() {
  const char* const installed = std::getenv("MARIGOLD_INSTALLED");  // NOLINT(concurrency-mt-unsafe)
  return installed != nullptr ? installed : MARIGOLD_PROGRAM;
}

/// That program in a home of its own, without a display and a bus.
class ProgramFixture : public testing::Test {
 private:
  static inline int argumentCount_ = 0;
  QCoreApplication application_{argumentCount_, nullptr};

 protected:
  TemporaryDirectory home;
  std::map<std::string, std::string> environment{
      {"HOME", home.path()},
      {"CODEX_HOME", home.path() + "/codex"},
      {"XDG_RUNTIME_DIR", home.path()},
      {"PATH", "/usr/bin:/bin"},
      {"LC_ALL", "C.UTF-8"},
      {"TZ", "UTC"},
      {"NO_AT_BRIDGE", "1"},
      {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"},
      {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + home.path() + "/no-bus"}};
  std::string executable = program();
  const std::string preferences = ".config/app.marigold.Marigold/preferences.json";
  // As it may be started by who knows whom.
  std::vector<std::string> wrapper{"/usr/bin/env", "--ignore-signal=CHLD,HUP",
                                   "--block-signal=ALRM,TERM,CHLD"};

  [[nodiscard]] ChildProcess start(std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.begin(), executable);
    arguments.insert(arguments.begin(), wrapper.begin(), wrapper.end());
    return run(arguments);
  }
  [[nodiscard]] ChildProcess run(const std::vector<std::string>& command) const {
    return ChildProcess(command, environment);
  }
  /// Has the program meet what support/Preloaded.cpp stages.
  void preload() {
    environment["LD_PRELOAD"] = MARIGOLD_PRELOADED;
    environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
  }
  /// Codex reports these percentages, now.
  void codexSays(double fiveHour, double weekly,
                 const std::string& file = "2026/11/22/rollout-a") const {
    append(home.path() + "/codex/sessions/" + file + ".jsonl", tokenCount(fiveHour, weekly));
  }
};

}  // namespace marigold::test
