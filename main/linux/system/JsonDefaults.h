#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "linux/system/FileWatch.h"
#include "ports/Defaults.h"
#include "ports/Log.h"

namespace marigold {

/// The user's preferences in one JSON object file, which other programs and people may change at
/// any time. A change is stored under a lock: the file is read again, the named members change, the
/// whole is replaced. Members that are neither boolean nor text read as absent and are written back
/// as they were. Nothing of the user's is overwritten unread: a file that is not a JSON object is
/// moved aside, and one that cannot be read is left alone, changes then lasting for this run only.
/// One that has gone, or is empty, changes no choice. A file reached through a link is replaced
/// where the link leads.
class JsonDefaults final : public Defaults {
 public:
  /// `log` must outlive this object.
  JsonDefaults(std::string path, Log& log);

  [[nodiscard]] DefaultsValue value(std::string_view key) const override;
  void apply(const std::vector<DefaultsChange>& changes) override;

  /// From now on takes over what others store, and tells of it on the thread of `loop`, which must
  /// outlive this object.
  void follow(LinuxEventLoop& loop);

 private:
  /// A value of another type, as JSON text.
  struct Foreign {
    std::string json;
    bool operator==(const Foreign&) const = default;
  };
  using Stored = std::variant<bool, std::string, Foreign>;
  using Values = std::map<std::string, Stored, std::less<>>;

  enum class Content : std::uint8_t {
    values,
    none,        ///< no file, or an empty one
    notOurs,     ///< something that cannot be a preferences file
    unreadable,  ///< no permission, or an error of the system
  };

  [[nodiscard]] Content read();
  void followChange();
  void say(std::string_view trouble);
  [[nodiscard]] bool moveAside();
  void save();
  static bool put(Values& values, const DefaultsChange& change);

  const std::string path_;
  Log& log_;
  Values values_;  ///< what the file held when last read, and `unsaved_`
  std::map<std::string, DefaultsValue> unsaved_;
  bool hasNews_ = false;  ///< something of `values_` came from others and is not yet told
  std::string said_;      ///< the last trouble that was logged
  std::unique_ptr<FileWatch> watch_;
};

}  // namespace marigold
