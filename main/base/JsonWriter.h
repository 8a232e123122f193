#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace marigold {

/// Writes one JSON text, piece by piece in document order.
class JsonWriter {
 public:
  JsonWriter();
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;
  ~JsonWriter();

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  void key(std::string_view name);
  void text(std::string_view value);
  /// A float in the shortest form that reads back the same.
  void number(double value);
  void flag(bool value);
  /// A value that is JSON text already.
  void json(std::string_view value);

  /// The finished text; nothing when a number was not finite or a text was not UTF-8.
  [[nodiscard]] std::optional<std::string> finished() const;

 private:
  struct Output;
  std::unique_ptr<Output> output_;
};

}  // namespace marigold
