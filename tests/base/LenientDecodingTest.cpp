#include <gtest/gtest.h>

#include "base/ISODate.h"
#include "base/LenientDecoding.h"
#include "base/PrintableText.h"

namespace marigold {
namespace {

TEST(JsonDocument, OnlyOneWellFormedObjectParses) {
  for (const char* value :
       {".5", "1.", "1e", "-", "01", "1-2", "NaN", "1,", "'1'", "\"\n\"", "\"\xc0\xaf\"",
        "\"\xed\xa0\x80\"", "\"\\ud8\"", "\"\\ud83z\"", "\"\\x\"", "\"\\", "1}{", "/**/1"}) {
    EXPECT_FALSE(JsonDocument::parseObject("{\"a\":" + std::string(value) + "}")) << value;
  }
  EXPECT_FALSE(JsonDocument::parseObject(std::string("{\"a\":1}\0", 8)));
  for (const char* text : {"", "[]", "null", "{", "{} x", "{}{}", "{\"\xff\":1}", "{\"\xf0"}) {
    EXPECT_FALSE(JsonDocument::parseObject(text)) << text;
  }
  EXPECT_TRUE(JsonDocument::parseObject("\xEF\xBB\xBF {} \n")) << "a byte order mark";
  const auto half = JsonDocument::parseObject(
      R"({"a":"\ude00","\ude00":[{}],"b":[1,"x\uDC00"],"\uDBFF":2,)"
      R"("c":["\uD83d\ud83d\ude00","\ud83dude00","\ud83d\n","\\ud83d","\ud83d\ude00"]})");
  EXPECT_FALSE(half->root()["a"].text() || half->root()["a"].isNull());
  EXPECT_EQ(half->root().members()->size(), 3);
  EXPECT_EQ(half->root().json(), R"({"a":null,"b":[1,null],"c":[null,null,null,"\\ud83d",")"
                                 "\U0001f600\"]}");
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  EXPECT_EQ(JsonDocument::parseObject("{\"a\":" + deep + "}")->root()["a"].json(), deep);
}

TEST(JsonValue, EachShapeIsReadAsItselfOnly) {
  const auto document = JsonDocument::parseObject(
      R"({"text":"\ud7ff\u0000\"-1","number":1.5,"flag":false,"null":null,)"
      R"("list":[1,[2,3],{"x":4},5],"object":{"flag":true},"twice":1,"twice":2})");
  const JsonValue root = document.value().root();
  const auto members = root.members().value();
  EXPECT_EQ(root["text"].text(), std::string("\ud7ff\0\"-1", 7));
  EXPECT_EQ(root["object"]["flag"].flag(), true) << "not the outer member of that name";
  EXPECT_TRUE(root["x"].isAbsent()) << "nor one that lies deeper";
  EXPECT_EQ(root["twice"].wholeNumber(), 1);
  EXPECT_EQ(root["object"].members()->size(), 1U) << "nor the next one";
  EXPECT_EQ((*root["list"].list())[3].wholeNumber(), 5);
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
  using Case = std::pair<std::string, std::optional<std::int64_t>>;
  for (const auto& [number, whole] :
       {Case("300.0", 300), Case("3e2", 300), Case("3e+2", 300), Case("-0", 0), Case("300.5", {}),
        Case("9007199254740993", 9007199254740993), Case("9223372036854775807", INT64_MAX),
        Case("9223372036854775808", {}), Case("-9223372036854775808", INT64_MIN),
        Case("9.3e18", {}), Case("1e400", {}), Case("-1e99999999999999999999", {})}) {
    const std::string text = "{\"v\":" + number + ",\"next\":[7]}";
    const auto document = JsonDocument::parseObject(text);
    ASSERT_TRUE(document.has_value()) << number;
    EXPECT_EQ(document->root()["v"].wholeNumber(), whole) << number;
    EXPECT_EQ(document->root().json(), text);
  }
}

TEST(PrintableText, LetsNothingThroughThatMovesOrHides) {
  for (const char* hidden : {"\x1f", "\x7f", "\u0080", "\u009f", "\u061c", "\u200b", "\u200f",
                             "\u2028", "\u2060", "\u206f", "\ufeff", "\xff", "\xf4", "\xc1"}) {
    EXPECT_EQ(printable(hidden), "?") << testing::PrintToString(hidden);
  }
  const std::string shown =
      " ~\u00a0\u07ff\u0800\u200a\u2010\u2027\u202f\u205f\u2070\ud7ff\ue000\U00010000\U000f0000"
      "\U00100000\U0010ffff";
  EXPECT_EQ(printable(shown), shown);
  EXPECT_EQ(printable("\u202e\u202c"), "??");
  EXPECT_EQ(printable("\xc3(\xe0\x9f\xbf\xed\xa0\x80\xf0\x8f\xbf\xbf\xf4\x90\x80\x80"),
            "?(" + std::string(14, '?'));
}

TEST(ISODate, ReadsInternetDateTimes) {
  using Row = std::pair<const char*, double>;
  for (const auto& [text, epoch] :
       {Row{"2026-06-12T13:40:42Z", 1781271642}, Row{"2026-06-12T13:40:42+02:00", 1781264442},
        Row{"2026-06-12T13:40:42.5-11:30", 1781313042.5},
        Row{"2026-06-12T13:40:42.123456789Z", 1781271642.123456789},
        Row{"2024-02-29T00:00:00Z", 1709164800}, Row{"1969-12-31T23:59:59Z", -1}}) {
    const auto date = ISODate::parse(text);
    ASSERT_TRUE(date.has_value()) << text;
    EXPECT_NEAR(date->time_since_epoch().count(), epoch, 1e-6) << text;
  }
  for (const char* text :
       {"", "1781271642", "202x-06-12T13:40:42Z", "2026-x6-12T13:40:42Z", "2026-06-12",
        "2026-06-12T13:40:42", "2026-06-12 13:40:42Z", "2026-06-12T13:40:42Z ",
        "2026-06-12T13:40:42.Z", "2026-06-12T13:40:42+02000", "2026-06-12T13:40:42+24:00",
        "2026-06-12T13:40:42+02:60", "2026-06-12T13:60:42Z", "2026-06-12T13:40:60Z",
        "2026-06-12T24:00:00Z", "2025-02-29T00:00:00Z"}) {
    EXPECT_EQ(ISODate::parse(text), std::nullopt) << text;
  }
}

TEST(Percent, IsReadFromNumbersAndNumericTextsWithinTheTolerance) {
  using Case = std::pair<std::string, std::optional<double>>;
  for (const auto& [json, percent] :
       {Case("-1", 0),         Case("-1.01", {}),      Case("101", 100),    Case("101.01", {}),
        Case("42.5", 42.5),    Case("\"42.5\"", 42.5), Case("\"1e1\"", 10), Case("\"+5\"", 5),
        Case("\"+-5\"", {}),   Case("\"16%\"", {}),    Case("\" 16\"", {}), Case("\"16 \"", {}),
        Case("\"\"", {}),      Case("\"16,5\"", {}),   Case("\"nan\"", {}), Case("\"inf\"", {}),
        Case("\"1e400\"", {}), Case("1e400", {}),      Case("null", {}),    Case("true", {})}) {
    const auto document = JsonDocument::parseObject("{\"v\":" + json + "}");
    EXPECT_EQ(decodePercent("v", document->root()), percent) << json;
  }
  EXPECT_EQ(plausibleWindowMinutes(longestWindowMinutes), 527040);
}

}  // namespace
}  // namespace marigold
