#include "base/JsonWriter.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace marigold {

struct JsonWriter::Output {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                    rapidjson::CrtAllocator, rapidjson::kWriteValidateEncodingFlag>
      writer{buffer};
  bool valid = true;
};

JsonWriter::JsonWriter() : output_(std::make_unique<Output>()) {}
JsonWriter::~JsonWriter() = default;

void JsonWriter::beginObject() {
  output_->valid &= output_->writer.StartObject();
}
void JsonWriter::endObject() {
  output_->valid &= output_->writer.EndObject();
}
void JsonWriter::beginArray() {
  output_->valid &= output_->writer.StartArray();
}
void JsonWriter::endArray() {
  output_->valid &= output_->writer.EndArray();
}

void JsonWriter::key(std::string_view name) {
  output_->valid &= output_->writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
}

void JsonWriter::text(std::string_view value) {
  output_->valid &=
      output_->writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void JsonWriter::number(double value) {
  output_->valid &= output_->writer.Double(value);
}
void JsonWriter::flag(bool value) {
  output_->valid &= output_->writer.Bool(value);
}

void JsonWriter::json(std::string_view value) {
  // The type matters only for a member's name, which is written by key().
  output_->valid &=
      output_->writer.RawValue(value.data(), value.size(), rapidjson::Type::kNullType);
}

std::optional<std::string> JsonWriter::finished() const {
  if (!output_->valid || !output_->writer.IsComplete()) {
    return std::nullopt;
  }
  return std::string(output_->buffer.GetString(), output_->buffer.GetSize());
}

}  // namespace marigold
