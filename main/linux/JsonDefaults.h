#pragma once

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ports/Defaults.h"
#include "ports/Log.h"

namespace marigold {

/// The user's preferences in one JSON object file, read once and replaced as a whole at each
/// change. Members that are neither boolean nor text read as absent and are written back as they
/// were. Nothing of the user's is overwritten unread: a file that is not a JSON object is moved
/// aside, and one that cannot be read is left alone, changes then lasting for this run only. A file
/// reached through a link is replaced where the link leads.
class JsonDefaults final : public Defaults {
 public:
  /// `log` must outlive this object.
  JsonDefaults(const std::string& path, Log& log);

  [[nodiscard]] DefaultsValue value(std::string_view key) const override;
  void apply(const std::vector<DefaultsChange>& changes) override;

 private:
  /// A value of another type, as JSON text.
  struct Foreign {
    std::string json;
    bool operator==(const Foreign&) const = default;
  };
  using Stored = std::variant<bool, std::string, Foreign>;

  [[nodiscard]] bool read();
  void moveAside(const std::string& path);
  void refuseToWrite(std::string_view reason);
  [[nodiscard]] bool put(const DefaultsChange& change);
  void save();

  std::string path_;
  Log& log_;
  std::map<std::string, Stored, std::less<>> values_;
  bool writable_ = true;
  bool unsaved_ = false;  ///< the last attempt to save failed
};

}  // namespace marigold
