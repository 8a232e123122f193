#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LenientDecoding.h"

namespace marigold {
namespace {

using testing::ElementsAre;

// The value in a document of its own, kept until the end.
class Parsed {
 public:
  explicit Parsed(const std::string& value)
      : document_(JsonDocument::parseObject("{\"v\":" + value + "}")) {}
  [[nodiscard]] JsonValue value() const { return document_ ? document_->root()["v"] : JsonValue(); }
  [[nodiscard]] JsonValue container() const { return document_ ? document_->root() : JsonValue(); }

 private:
  std::optional<JsonDocument> document_;
};

TEST(JsonDocument, OnlyOneWellFormedObjectParses) {
  for (const char* value :
       {".5", "1.", "1e", "-", "01", "1-2", "NaN", "1,", "'1'", "\"\n\"", "\"\xc0\xaf\"",
        "\"\xed\xa0\x80\"", "\"\\ud800\"", "\"\\ude00\"", "\"\\x\"", "\"\\", "1}{", "/**/1"}) {
    EXPECT_FALSE(JsonDocument::parseObject("{\"a\":" + std::string(value) + "}")) << value;
  }
  EXPECT_FALSE(JsonDocument::parseObject(std::string("{\"a\":1}\0", 8)));
  EXPECT_FALSE(JsonDocument::parseObject(std::string("{\"a\":\"\0\"}", 9)));
  EXPECT_FALSE(JsonDocument::parseObject("{\"a\":" + std::string(100'000, '[')));
  for (const char* text : {"", " ", "[]", "1", "null", "{", "{} x", "{}{}", "{\"\xff\":1}"}) {
    EXPECT_FALSE(JsonDocument::parseObject(text)) << text;
  }
  EXPECT_TRUE(JsonDocument::parseObject(" {} \n"));
  EXPECT_TRUE(JsonDocument::parseObject("\xEF\xBB\xBF{}")) << "a byte order mark";
}

TEST(JsonValue, EachShapeIsReadAsItselfOnly) {
  const auto document = JsonDocument::parseObject(
      R"({"text":"\u00e4\u0000\"-1","number":1.5,"flag":false,"null":null,)"
      R"("list":[1,[2,3],{"x":4},5],"object":{"":6,"flag":true},"twice":1,"twice":2})");
  ASSERT_TRUE(document.has_value());
  const JsonValue root = document->root();
  EXPECT_EQ(root["text"].text(), std::string("\u00e4\0\"-1", 6));
  EXPECT_EQ(root["flag"].flag(), false);
  EXPECT_EQ(root["object"][""].wholeNumber(), 6);
  EXPECT_EQ(root["object"]["flag"].flag(), true) << "not the outer member of that name";
  EXPECT_TRUE(root["x"].isAbsent()) << "nor one that lies deeper";
  EXPECT_EQ(root["twice"].wholeNumber(), 1);
  EXPECT_EQ(root["list"].list()->size(), 4U);
  EXPECT_EQ((*root["list"].list())[3].wholeNumber(), 5);
  const auto members = *root.members();
  EXPECT_EQ(members.size(), 8U);
  for (const auto& [key, value] : members) {
    EXPECT_EQ(value.text().has_value(), key == "text");
    EXPECT_EQ(value.number().has_value(), key == "number" || key == "twice");
    EXPECT_EQ(value.flag().has_value(), key == "flag");
    EXPECT_EQ(value.list().has_value(), key == "list");
    EXPECT_EQ(value.object().has_value(), key == "object");
    EXPECT_EQ(value.isNull(), key == "null");
  }
}

TEST(JsonValue, NumbersKeepTheirPrecisionAndCostOnlyThemselves) {
  struct Case {
    std::string json;
    bool representable;
    std::optional<std::int64_t> whole;
  };
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  for (const Case& c :
       {Case{"300", true, 300}, Case{"300.0", true, 300}, Case{"3e2", true, 300},
        Case{"-0", true, 0}, Case{"9007199254740993", true, 9007199254740993},
        Case{"9223372036854775807", true, most}, Case{"9223372036854775808", true, {}},
        Case{"-9223372036854775808", true, -most - 1}, Case{"-9223372036854775809", true, {}},
        Case{"300.5", true, {}}, Case{"1e308", true, {}}, Case{"1e400", false, {}},
        Case{"-1e400", false, {}}, Case{"1e99999999999999999999", false, {}},
        Case{std::string(400, '9'), false, {}}, Case{"\"300\"", false, {}},
        Case{"true", false, {}}}) {
    const Parsed parsed(c.json + ",\"next\":[7]");
    EXPECT_EQ(parsed.value().wholeNumber(), c.whole) << c.json;
    EXPECT_EQ(parsed.value().number().has_value(), c.representable) << c.json;
    EXPECT_EQ(parsed.container()["next"].json(), "[7]") << c.json;
    EXPECT_EQ(parsed.value().json(), c.json);
  }
}

struct Item {
  std::int64_t value;
  bool operator==(const Item&) const = default;
  static std::optional<Item> decode(JsonValue json) {
    const auto value = json["value"].wholeNumber();
    return value ? std::optional(Item{*value}) : std::nullopt;
  }
};

TEST(Lossy, ABadItemCostsThatItemOnly) {
  const Parsed list(R"([{"value":1},{"value":2},{"value":"3"},{"value":4},{"value":5}])");
  const auto items = decodeSurvivors<Item>(list.value());
  ASSERT_TRUE(items.has_value());
  EXPECT_THAT(*items, ElementsAre(Item{1}, Item{2}, Item{4}, Item{5}));
  EXPECT_FALSE(decodeSurvivors<Item>(Parsed("{}").value()).has_value());
}

TEST(ISODate, ReadsInternetDateTimes) {
  for (const auto& [text, epoch] : {std::pair("2026-06-12T13:40:42Z", 1781271642.0),
                                    {"2026-06-12T13:40:42.000Z", 1781271642},
                                    {"2026-06-12T13:40:42+02:00", 1781264442},
                                    {"2026-06-12T13:40:42-11:30", 1781313042},
                                    {"2026-07-14T17:01:30.825368+00:00", 1784048490.825368},
                                    {"2026-06-12T13:40:42.123456789Z", 1781271642.123456789},
                                    {"2024-02-29T00:00:00Z", 1709164800},
                                    {"1969-12-31T23:59:59Z", -1}}) {
    const auto date = ISODate::parse(text);
    ASSERT_TRUE(date.has_value()) << text;
    EXPECT_NEAR(date->time_since_epoch().count(), epoch, 1e-6) << text;
  }
  for (const char* text :
       {"", "yesterday", "1781271642", "2026-06-12", "2026-06-12T13:40:42", "2026-06-12 13:40:42Z",
        "2026-06-12T13:40:42Z ", "2026-06-12T13:40:42.Z", "2026-06-12T13:40:42+0200",
        "2026-06-12T13:40:42+24:00", "2026-06-12T24:00:00Z", "2026-06-12T13:60:42Z",
        "2026-06-31T00:00:00Z", "2025-02-29T00:00:00Z", "-026-06-12T13:40:42Z"}) {
    EXPECT_EQ(ISODate::parse(text), std::nullopt) << text;
  }
  EXPECT_EQ(ISODate::parse(std::nullopt), std::nullopt);
  EXPECT_FALSE(Parsed("1781271642").value().date().has_value());
}

TEST(Percent, IsReadFromNumbersAndNumericTextsWithinTheTolerance) {
  struct Case {
    const char* json;
    std::optional<double> percent;
  };
  for (const Case& c : std::vector<Case>{
           {"-0.5", 0},       {"-1", 0},      {"-1.01", {}},      {"100.7", 100},  {"101", 100},
           {"101.01", {}},    {"42.5", 42.5}, {"\"42.5\"", 42.5}, {"\"16\"", 16},  {"\"16.0\"", 16},
           {"\"1e1\"", 10},   {"\"+5\"", 5},  {"\"abc\"", {}},    {"\"16%\"", {}}, {"\" 16\"", {}},
           {"\"16 \"", {}},   {"\"\"", {}},   {"\"16,5\"", {}},   {"\"nan\"", {}}, {"\"inf\"", {}},
           {"\"1e400\"", {}}, {"1e400", {}},  {"null", {}},       {"true", {}},    {"[16]", {}},
           {"\"+-5\"", {}},   {"\"++5\"", {}}}) {
    const Parsed parsed(c.json);
    EXPECT_EQ(decodePercent("v", parsed.container()), c.percent) << c.json;
  }
  EXPECT_EQ(decodePercent("other", Parsed("1").container()), std::nullopt);
  EXPECT_EQ(sanitizePercent(std::numeric_limits<double>::quiet_NaN()), std::nullopt);
  EXPECT_EQ(sanitizePercent(-std::numeric_limits<double>::infinity()), std::nullopt);
  EXPECT_EQ(sanitizePercent(std::nullopt), std::nullopt);
  EXPECT_FALSE(std::signbit(*sanitizePercent(-0.0)));
}

TEST(WindowMinutes, OfUpToAYearArePlausible) {
  for (const std::int64_t minutes : {-5, 0, 1, 300, 10080, 527040, 527041}) {
    const bool plausible = minutes >= 1 && minutes <= 527040;
    EXPECT_EQ(plausibleWindowMinutes(minutes), plausible ? std::optional(minutes) : std::nullopt);
  }
}

TEST(SentNonNull, IsTrueForAnyValueButNull) {
  EXPECT_FALSE(sentNonNull("v", Parsed("null").container()));
  EXPECT_FALSE(sentNonNull("other", Parsed("1").container()));
  EXPECT_FALSE(sentNonNull("v", Parsed("1").value())) << "no container";
  EXPECT_TRUE(sentNonNull("v", Parsed("0").container()));
  EXPECT_TRUE(sentNonNull("v", Parsed("\"\"").container()));
}

}  // namespace
}  // namespace marigold
