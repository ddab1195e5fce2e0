#include "manifest/json.h"

#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>

#include "tests/support/parsed_json.h"

namespace kvx {
namespace {

using std::string_literals::operator""s;  // NOLINT(misc-unused-using-decls): clang-tidy does not see its use
using test::ParsedJson;
using testing::ElementsAre;
using Kind = JsonValue::Kind;

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (; count > 0; --count) result += text;
  return result;
}

ParsedJson parsed(const std::string& text) { return ParsedJson(text); }

std::vector<const JsonValue*> elements_of(const JsonValue& array) {
  std::vector<const JsonValue*> elements;
  for (const JsonValue& element : array.elements()) elements.push_back(&element);
  return elements;
}

std::string error_of(const std::string& text) {
  JsonDocument document;
  std::string error;
  EXPECT_FALSE(parse_json(text, document, error)) << text.substr(0, 200);
  EXPECT_EQ(document.root().kind(), Kind::null);
  return error;
}

TEST(Json, KeepsTheOrderOfKinds) {
  const std::vector<std::string> documents = {"null", "true", "1", "1.0", "\"\"", "[]", "{}"};
  for (size_t i = 0; i < documents.size(); ++i) {
    EXPECT_EQ(static_cast<size_t>(parsed(documents[i])->kind()), i) << documents[i];
  }
  EXPECT_EQ(JsonValue().kind(), Kind::null);
  EXPECT_EQ(JsonDocument().root().kind(), Kind::null);
}

TEST(Json, GivesAValueOnlyOfItsOwnKind) {
  for (const char* document : {"null", "true", "1", "1.0", "\"a\"", "[1]", "{\"a\":1}"}) {
    const ParsedJson value = parsed(document);
    EXPECT_EQ(value->boolean().has_value(), value->kind() == Kind::boolean) << document;
    EXPECT_EQ(value->integer().has_value(), value->kind() == Kind::integer) << document;
    EXPECT_EQ(value->number().has_value(), value->kind() == Kind::number) << document;
    EXPECT_EQ(value->string().has_value(), value->kind() == Kind::string) << document;
    EXPECT_EQ(value->is_array(), value->kind() == Kind::array) << document;
    EXPECT_EQ(value->is_object(), value->kind() == Kind::object) << document;
    EXPECT_EQ(value->elements().size(), value->kind() == Kind::array ? 1U : 0U) << document;
    EXPECT_EQ(value->members().size(), value->kind() == Kind::object ? 1U : 0U) << document;
    EXPECT_EQ(value->find_member("a") != nullptr, value->kind() == Kind::object) << document;
  }
}

TEST(Json, ReadsLiterals) {
  EXPECT_TRUE(*parsed("true")->boolean());
  EXPECT_FALSE(*parsed(" false\r\n")->boolean());
}

TEST(Json, KeepsIntegersExact) {
  struct Case {
    const char* text;
    int64_t expected;
  };
  for (const Case& c : {Case{"0", 0},
                        {"-0", 0},
                        {"-1", -1},
                        {"1234567890", 1234567890},
                        {"9007199254740993", 9007199254740993},
                        {"9223372036854775807", std::numeric_limits<int64_t>::max()},
                        {"-9223372036854775808", std::numeric_limits<int64_t>::min()},
                        {"-9223372036854775807", -std::numeric_limits<int64_t>::max()}}) {
    const ParsedJson value = parsed(c.text);
    ASSERT_EQ(value->kind(), Kind::integer) << c.text;
    EXPECT_EQ(*value->integer(), c.expected) << c.text;
  }
}

TEST(Json, MakesADoubleOfAFractionOrExponentOnly) {
  struct Case {
    const char* text;
    double expected;
  };
  for (const Case& c : {Case{"1.5", 1.5},
                        {"1e3", 1000},
                        {"1E3", 1000},
                        {"1e+3", 1000},
                        {"25e-1", 2.5},
                        {"-1.25", -1.25},
                        {"1.0", 1},
                        {"0.0", 0},
                        {"0e0", 0},
                        {"1e400", HUGE_VAL},
                        {"-1e400", -HUGE_VAL},
                        {"1e-400", 0},
                        {"9223372036854775808.0", 9223372036854775808.0},
                        {"1e00003", 1000}}) {
    const ParsedJson value = parsed(c.text);
    ASSERT_EQ(value->kind(), Kind::number) << c.text;
    EXPECT_EQ(*value->number(), c.expected) << c.text;
  }
}

TEST(Json, DecodesStrings) {
  struct Case {
    std::string text;
    std::string expected;
  };
  for (const Case& c :
       {Case{R"("")", ""},
        {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
        {R"("\u00e9")", "\xC3\xA9"},
        {R"("\u0041\u00E9\u007f\u0080\u07ff\u0800\uffff")", "A\xC3\xA9\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {R"("\ud83d\ude00")", "\xF0\x9F\x98\x80"},
        {R"("\uD800\uDC00")", "\xF0\x90\x80\x80"},
        {R"("\uDBFF\uDFFF")", "\xF4\x8F\xBF\xBF"},
        {R"("\ud7ff\ue000")", "\xED\x9F\xBF\xEE\x80\x80"},
        {"\"\x80\xFF\xC3\"", "\x80\xFF\xC3"},
        {"\"\x7F\"", "\x7F"},
        {"\"\x20/\"", " /"}}) {
    const ParsedJson value = parsed(c.text);
    ASSERT_EQ(value->kind(), Kind::string) << c.text;
    EXPECT_EQ(*value->string(), c.expected) << c.text;
  }
}

bool is_within(std::string_view part, std::string_view text) {
  return part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size();
}

TEST(Json, CopiesOnlyStringsThatAreEscaped) {
  const std::string text = R"({"plain":"a long text without any escape","esc\u0061ped":"a long text\nwith an escape"})";
  JsonDocument document;
  std::string error;
  ASSERT_TRUE(parse_json(text, document, error)) << error;
  const JsonValue* plain = document.root().find_member("plain");
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(*plain->string(), "a long text without any escape");
  EXPECT_TRUE(is_within(*plain->string(), text));
  const JsonValue* escaped = document.root().find_member("escaped");
  ASSERT_NE(escaped, nullptr);
  EXPECT_EQ(*escaped->string(), "a long text\nwith an escape");
  EXPECT_FALSE(is_within(*escaped->string(), text));
}

// Bytes are looked at by the eight.
TEST(Json, NoticesEachByteWhereverItStands) {
  for (int byte = 0; byte < 0x100; ++byte) {
    for (size_t position = 0; position < 20; ++position) {
      std::string content(24, 'x');
      content[position] = static_cast<char>(byte);
      const std::string text = '"' + content + '"';
      if (byte == '"') {
        EXPECT_EQ(error_of(text), "trailing data after JSON value");
      } else if (byte == '\\') {
        EXPECT_EQ(error_of(text), "bad escape at offset " + std::to_string(position + 3));
      } else if (byte < 0x20) {
        EXPECT_EQ(error_of(text), "control character in string at offset " + std::to_string(position + 2)) << byte;
      } else {
        EXPECT_EQ(*parsed(text)->string(), content) << byte;
      }
    }
  }
}

TEST(Json, StaysInPlaceWhenTheDocumentIsMoved) {
  const std::string text = R"(["short\n","a longer text\nwith an escape",[1]])";
  JsonDocument document;
  std::string error;
  ASSERT_TRUE(parse_json(text, document, error)) << error;
  const JsonValue& root = document.root();
  const std::vector<const JsonValue*> before = elements_of(root);
  const std::string_view text_before = *before[0]->string();
  const JsonDocument moved = std::move(document);
  document = JsonDocument();
  EXPECT_EQ(&moved.root(), &root);
  EXPECT_EQ(elements_of(moved.root()), before);
  EXPECT_EQ(before[0]->string()->data(), text_before.data());
  EXPECT_EQ(*before[0]->string(), "short\n");
}

// Values lie in blocks of about a thousand.
TEST(Json, FindsItsWayWhereverABlockEnds) {
  for (int before = 0; before < 1100; ++before) {
    const ParsedJson value = parsed("[" + repeated("0,", before) + R"([],{},[[1],{"a":{"b":2}}],{"c":[3],"d":4},5])");
    const std::vector<const JsonValue*> elements = elements_of(*value);
    const auto count = static_cast<size_t>(before);
    ASSERT_EQ(elements.size(), count + 5);
    EXPECT_TRUE(elements[count]->is_array());
    EXPECT_TRUE(elements[count]->elements().empty());
    EXPECT_TRUE(elements[count + 1]->is_object());
    EXPECT_TRUE(elements[count + 1]->members().empty());
    const std::vector<const JsonValue*> nested = elements_of(*elements[count + 2]);
    ASSERT_EQ(nested.size(), 2U);
    EXPECT_EQ(elements_of(*nested[0])[0]->integer(), 1);
    EXPECT_EQ(nested[1]->find_member("a")->find_member("b")->integer(), 2);
    EXPECT_EQ(elements_of(*elements[count + 3]->find_member("c"))[0]->integer(), 3);
    EXPECT_EQ(elements[count + 3]->find_member("d")->integer(), 4);
    EXPECT_EQ(elements[count + 4]->integer(), 5) << before;
  }
}

TEST(Json, KeepsElementsAndMembersInOrder) {
  const ParsedJson value = parsed("\t{ \"b\" : [ 1 , [ ] , { } ] ,\r\n\"a\":{\"b\":2}, \"A\":3, \"\":4 } ");
  std::vector<std::string> keys;
  for (const JsonMember& member : value->members()) keys.emplace_back(member.key);
  EXPECT_THAT(keys, ElementsAre("b", "a", "A", ""));
  const std::vector<const JsonValue*> array = elements_of(*value->find_member("b"));
  ASSERT_EQ(array.size(), 3U);
  EXPECT_EQ(*array[0]->integer(), 1);
  EXPECT_EQ(array[1]->kind(), Kind::array);
  EXPECT_TRUE(array[1]->elements().empty());
  EXPECT_EQ(array[2]->kind(), Kind::object);
  EXPECT_TRUE(array[2]->members().empty());
  EXPECT_EQ(*value->find_member("a")->find_member("b")->integer(), 2);
  EXPECT_EQ(*value->find_member("A")->integer(), 3);
  EXPECT_EQ(*value->find_member("")->integer(), 4);
  EXPECT_EQ(value->find_member("B"), nullptr);
}

TEST(Json, SkipsAByteOrderMarkAndCountsItInOffsets) {
  EXPECT_EQ(*parsed("\xEF\xBB\xBF 1")->integer(), 1);
  EXPECT_EQ(error_of("\xEF\xBB\xBF"), "unexpected end at offset 3");
  EXPECT_EQ(error_of("\xEF\xBB\xBF{\"a\":1,\"a\":2}"), "duplicate key at offset 13");
  EXPECT_EQ(error_of("\xEF\xBB\xBF\xEF\xBB\xBF"), "unexpected character at offset 3");
  EXPECT_EQ(error_of("\xEF\xBB"), "unexpected character at offset 0");
}

TEST(Json, NestsThirtyThreeContainers) {
  EXPECT_EQ(parsed(repeated("[", 33) + repeated("]", 33))->kind(), Kind::array);
  EXPECT_EQ(parsed(repeated("{\"a\":", 32) + "{}" + repeated("}", 32))->kind(), Kind::object);
  EXPECT_EQ(parsed(repeated("[", 32) + "1" + repeated("]", 32))->kind(), Kind::array);
  EXPECT_EQ(error_of(repeated("[", 33) + "1" + repeated("]", 33)), "nesting too deep at offset 33");
  EXPECT_EQ(error_of(repeated("[", 34) + repeated("]", 34)), "nesting too deep at offset 33");
  EXPECT_EQ(error_of(repeated("{\"a\":", 33) + "1" + repeated("}", 33)), "nesting too deep at offset 165");
  EXPECT_EQ(error_of(repeated("[", 1000000)), "nesting too deep at offset 33");
  EXPECT_EQ(error_of(repeated("[", 33) + " "), "nesting too deep at offset 34");
}

TEST(Json, SaysWhatIsWrongAndWhere) {
  struct Case {
    std::string text;
    const char* error;
  };
  for (const Case& c : {
           Case{"", "unexpected end at offset 0"},
           {" \t\r\n", "unexpected end at offset 4"},
           {"[", "unexpected end at offset 1"},
           {"[1,", "unexpected end at offset 3"},
           {"{\"a\":", "unexpected end at offset 5"},
           {"[1,]", "unexpected character at offset 3"},
           {"[,1]", "unexpected character at offset 1"},
           {"  'a'", "unexpected character at offset 2"},
           {"+1", "unexpected character at offset 0"},
           {".5", "unexpected character at offset 0"},
           {"\v1", "unexpected character at offset 0"},
           {"\0"s, "unexpected character at offset 0"},
           {"NaN", "unexpected character at offset 0"},
           {"tru", "bad literal at offset 0"},
           {" True", "unexpected character at offset 1"},
           {" tRue", "bad literal at offset 1"},
           {"[fals]", "bad literal at offset 1"},
           {"nul", "bad literal at offset 0"},
           {"nil ", "bad literal at offset 0"},
           {"[truex]", "expected ',' or ']' at offset 5"},
           {"truex", "trailing data after JSON value"},
           {"true false", "trailing data after JSON value"},
           {"{} {}", "trailing data after JSON value"},
           {"1]", "trailing data after JSON value"},
           {"1\0"s, "trailing data after JSON value"},
           {"\"", "unterminated string at offset 1"},
           {"\"abc", "unterminated string at offset 4"},
           {"[\"abc]", "unterminated string at offset 6"},
           {"\"a\tb\"", "control character in string at offset 3"},
           {"\"\n\"", "control character in string at offset 2"},
           {"\"\x1F\"", "control character in string at offset 2"},
           {"\"\0\""s, "control character in string at offset 2"},
           {"{\"a\nb\":1}", "control character in string at offset 4"},
           {"\"\\", "unterminated escape at offset 2"},
           {"\"\\x41\"", "bad escape at offset 3"},
           {"\"\\'\"", "bad escape at offset 3"},
           {"\"\\U0041\"", "bad escape at offset 3"},
           {"\"\\u12\"", "truncated \\u escape at offset 3"},
           {"\"\\u", "truncated \\u escape at offset 3"},
           {"\"\\u12\" ", "bad \\u escape at offset 6"},
           {"\"\\u00g0\"", "bad \\u escape at offset 6"},
           {"\"\\u+041\"", "bad \\u escape at offset 4"},
           {"\"\\ud800\"", "lone surrogate at offset 7"},
           {"\"\\ud800abcdefg\"", "lone surrogate at offset 7"},
           {"\"\\ud800\\n12345\"", "lone surrogate at offset 7"},
           {"\"\\ud800\\u004", "lone surrogate at offset 7"},
           {"\"\\udc00\"", "lone surrogate at offset 7"},
           {"\"\\udfff\\ud800\"", "lone surrogate at offset 7"},
           {"\"\\ud800\\u0041\"", "bad surrogate pair at offset 13"},
           {"\"\\ud800\\ud800\"", "bad surrogate pair at offset 13"},
           {"\"\\ud800\\ue000\"", "bad surrogate pair at offset 13"},
           {"\"\\ud800\\u00zz\"", "bad \\u escape at offset 12"},
           {"\"\\u0000\"", "NUL in string at offset 7"},
           {"{\"\\u0000\":1}", "NUL in string at offset 8"},
           {"-", "bad number at offset 1"},
           {"-a", "bad number at offset 1"},
           {"--1", "bad number at offset 1"},
           {"1.", "bad number at offset 2"},
           {"1.e1", "bad number at offset 2"},
           {"1e", "bad number at offset 2"},
           {"1e+", "bad number at offset 3"},
           {"1e+-1", "bad number at offset 3"},
           {"-.5", "bad number at offset 1"},
           {"01", "trailing data after JSON value"},
           {"-01", "trailing data after JSON value"},
           {"[01]", "expected ',' or ']' at offset 2"},
           {"[0x1]", "expected ',' or ']' at offset 2"},
           {"[1.5.5]", "expected ',' or ']' at offset 4"},
           {"9223372036854775808", "integer overflow at offset 19"},
           {"-9223372036854775809", "integer overflow at offset 20"},
           {"18446744073709551615", "integer overflow at offset 20"},
           {"18446744073709551616", "integer overflow at offset 20"},
           {"[99999999999999999999999999]", "integer overflow at offset 27"},
           {"{\"a\":1,\"a\":2}", "duplicate key at offset 10"},
           {"{\"\":1,\"\":2}", "duplicate key at offset 8"},
           {"{\"a\":1,\"\\u0061\":2}", "duplicate key at offset 15"},
           {"[{\"x\":{\"a\":1,\"b\":2,\"a\"", "duplicate key at offset 22"},
           {"{", "expected string at offset 1"},
           {"{ ", "expected string at offset 2"},
           {"{1:2}", "expected string at offset 1"},
           {"{a:1}", "expected string at offset 1"},
           {"{\"a\":1,}", "expected string at offset 7"},
           {"{,}", "expected string at offset 1"},
           {"{\"a\"", "expected ':' at offset 4"},
           {"{\"a\" 1}", "expected ':' at offset 5"},
           {"{\"a\",1}", "expected ':' at offset 4"},
           {"{\"a\":1", "expected ',' or '}' at offset 6"},
           {"{\"a\":1 ]", "expected ',' or '}' at offset 7"},
           {"{\"a\":1 \"b\":2}", "expected ',' or '}' at offset 7"},
           {"{\"a\":01}", "expected ',' or '}' at offset 6"},
           {"[1", "expected ',' or ']' at offset 2"},
           {"[1 2]", "expected ',' or ']' at offset 3"},
           {"[1}", "expected ',' or ']' at offset 2"},
       }) {
    EXPECT_EQ(error_of(c.text), c.error) << c.text;
  }
}

TEST(Json, TakesAnEscapedKeyForThePlainOne) {
  const ParsedJson value = parsed(R"({"\u0061b":1,"":2,"c\/d":3})");
  EXPECT_EQ(value->find_member("ab")->integer(), 1);
  EXPECT_EQ(value->find_member("")->integer(), 2);
  EXPECT_EQ(value->find_member("c/d")->integer(), 3);
  EXPECT_EQ(value->find_member("\\u0061b"), nullptr);
  for (const char* text : {R"({"ab":1,"\u0061b")", R"({"\u0061b":1,"ab")", R"({"\u0061b":1,"a\u0062")"}) {
    EXPECT_EQ(error_of(text + std::string(":2}")), "duplicate key at offset " + std::to_string(std::strlen(text)));
  }
}

TEST(Json, ForgetsWhatTheValueHeldBefore) {
  JsonDocument document;
  std::string error;
  ASSERT_TRUE(parse_json("{\"a\":1}", document, error));
  EXPECT_FALSE(parse_json("", document, error));
  EXPECT_EQ(document.root().kind(), Kind::null);
  EXPECT_TRUE(parse_json("[2]", document, error));
  EXPECT_EQ(document.root().find_member("a"), nullptr);
}

TEST(Json, FindsADuplicateKeyHoweverManyThereAre) {
  for (const int count : {2, 15, 16, 17, 18, 40, 100000}) {
    std::string text = "{";
    for (int i = 0; i < count; ++i) text += "\"key" + std::to_string(i) + "\":" + std::to_string(i) + ",";
    const ParsedJson value(text + "\"last\":0}");
    EXPECT_EQ(*value->find_member("key" + std::to_string(count - 1))->integer(), count - 1);
    for (const int repeat : {0, count / 2, count - 1}) {
      const std::string with_duplicate = text + "\"key" + std::to_string(repeat) + "\"";
      EXPECT_EQ(error_of(with_duplicate + ":0}"), "duplicate key at offset " + std::to_string(with_duplicate.size()));
      const std::string with_escape = text + "\"\\u006bey" + std::to_string(repeat) + "\"";
      EXPECT_EQ(error_of(with_escape + ":0}"), "duplicate key at offset " + std::to_string(with_escape.size()));
    }
  }
}

}  // namespace
}  // namespace kvx
