#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "base/json_document.h"
#include "base/record.h"

namespace velotide {
namespace {

enum class Shade { light, dark };
constexpr auto rawWords(Shade) { return std::array{"light", "dark-er"}; }

struct Leaf {
  std::optional<std::string> note;
  Shade shade = Shade::light;
  bool operator==(const Leaf&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("note", self.note);
    visit("shade", self.shade);
  }
};

struct Tree {
  std::uint64_t natural = 0;
  std::int32_t integer = 0;
  double real = 0;
  bool flag = false;
  Uuid id;
  std::optional<CarriedBytes> data;
  std::optional<std::vector<Leaf>> leaves;
  std::map<std::string, std::string> map;
  bool operator==(const Tree&) const = default;
  static void fields(auto& self, auto& visit) {
    visit("natural", self.natural);
    visit("integer", self.integer);
    visit("real", self.real);
    visit("flag", self.flag);
    visit("id", self.id);
    visit("data", self.data);
    visit("leaves", self.leaves);
    visit("map", self.map);
  }
};

constexpr const char* nilID = "00000000-0000-0000-0000-000000000000";

template <typename T>
std::optional<T> decoded(std::string_view text) {
  JsonDocument document;
  ByteQueue buffer;
  buffer.append(text);
  buffer.reserve(1);  // an empty queue has no memory to work in
  return decodeText<T>(document, buffer.mutableText());
}

template <typename T>
std::string encoded(const T& value) {
  ByteQueue out;
  return encodeText(out, value) ? std::string(out.text()) : "<failed>";
}

std::string tree(const std::string& changed) {
  return R"({"natural":1,"integer":-1,"real":0.5,"flag":true,"map":{},"id":")" + std::string(nilID) + "\"" +
         (changed.empty() ? "" : "," + changed) + "}";
}

TEST(Record, RoundTripsEveryType) {
  Tree value;
  value.natural = std::numeric_limits<std::uint64_t>::max();
  value.integer = std::numeric_limits<std::int32_t>::min();
  value.real = 786000000.123456;
  value.id = Uuid::random();
  value.data = CarriedBytes(Bytes{0, 255, 10, 13});
  value.leaves = {
      {Leaf{"tab\t quote\" escape\x1b nul" + std::string(1, '\0') + " \xc3\xa9", Shade::dark}, Leaf{}}};
  value.map = {{"B", "2"}, {"A", ""}};
  const std::string text = encoded(value);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << "control characters must be escaped: " << text;
  EXPECT_EQ(decoded<Tree>(text), value) << text;
}

TEST(Record, WritesPresentFieldsInDeclarationOrder) {
  EXPECT_EQ(encoded(Leaf{}), R"({"shade":"light"})");
  EXPECT_EQ(encoded(Leaf{"", Shade::dark}), R"({"note":"","shade":"dark-er"})");
  Tree infinite;
  infinite.real = std::numeric_limits<double>::infinity();
  EXPECT_EQ(encoded(infinite), "<failed>");
}

struct Strictness {
  const char* name;
  std::string text;
  bool decodes;
};

class StrictDecoding : public testing::TestWithParam<Strictness> {};

TEST_P(StrictDecoding, AcceptsOrRefuses) {
  EXPECT_EQ(decoded<Tree>(GetParam().text).has_value(), GetParam().decodes) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, StrictDecoding,
    testing::Values(
        Strictness{"Plain", tree(""), true},
        Strictness{"WhiteSpaceAround", " \t\r\n" + tree("") + "\r\n ", true},
        Strictness{"MissingRequired", R"({"natural":1})", false}, Strictness{"NotAnObject", "[]", false},
        Strictness{"Empty", "", false}, Strictness{"TrailingText", tree("") + "x", false},
        Strictness{"SecondValue", tree("") + "{}", false},
        Strictness{"UnknownKeysSkipped", tree(R"("x":{"natural":[1,{"id":3}]},"y":[[],{}])"), true},
        Strictness{"NullOptional", tree(R"("data":null,"leaves":null)"), true},
        Strictness{"NullRequired", tree(R"("flag":null)"), false},
        Strictness{"MistypedOptional", tree(R"("data":7)"), false},
        Strictness{"WholeWithFraction", tree(R"("natural":2.0,"integer":1e3)"), true},
        Strictness{"Fraction", tree(R"("integer":1.5)"), false},
        Strictness{"NegativeNatural", tree(R"("natural":-1)"), false},
        Strictness{"LargestNatural", tree(R"("natural":18446744073709551615)"), true},
        Strictness{"NaturalTooLarge", tree(R"("natural":18446744073709551616)"), false},
        Strictness{"IntegerTooLarge", tree(R"("integer":2147483648)"), false},
        Strictness{"RoundedOutOfRange", tree(R"("x":0,"natural":18446744073709551615.0)"), false},
        Strictness{"IntegerFarTooLarge", tree(R"("integer":1e300)"), false},
        Strictness{"IntegerZeroWithExponent", tree(R"("integer":0e88)"), true},
        Strictness{"NumberWithoutEnd", tree("\"real\":" + std::string(5000, '9')), false},
        Strictness{"TextForNumber", tree(R"("integer":"1")"), false},
        Strictness{"LowerCaseUuid", tree(R"("id":"abcdefab-0000-4000-8000-0123456789ab")"), true},
        Strictness{"ShortUuid", tree(R"("id":"ABCDEFAB")"), false},
        Strictness{"MisplacedHyphen", tree(R"("id":"0000000-00000-0000-0000-000000000000")"), false},
        Strictness{"UnknownWord", tree(R"("leaves":[{"shade":"Light"}])"), false},
        Strictness{"BadBase64", tree(R"("data":"AA=A")"), false},
        Strictness{"Base64WithSpace", tree(R"("data":"AAA ")"), false},
        Strictness{"Base64Unpadded", tree(R"("data":"AA")"), false},
        Strictness{"InvalidUtf8", tree("\"x\":\"\xff\""), false},
        Strictness{"OverlongUtf8", tree("\"x\":\"abcdefghijk\xc0\xaf\""), false},
        Strictness{"CutUtf8", tree("\"leaves\":[{\"note\":\"\xc3\",\"shade\":\"light\"}]"), false},
        Strictness{"Utf8BeyondUnicode", tree("\"x\":\"\xf4\x90\x80\x80\""), false},
        Strictness{"EncodedSurrogate", tree("\"x\":\"\xed\xa0\x80\""), false},
        Strictness{"EscapedPair", tree(R"("x":"\ud83d\ude00")"), true},
        Strictness{"LoneHighSurrogate", tree(R"("x":"\ud83d")"), false},
        Strictness{"LoneLowSurrogate", tree(R"("x":"\ude00")"), false},
        Strictness{"RawEscapeCharacter", tree("\"x\":\"a long enough text with an \x1b inside it\""), false},
        Strictness{"RawTabInText", tree("\"x\":\"a\tb\""), false},
        Strictness{"RawNul", tree(std::string("\"x\":\"a\0b\"", 9)), false},
        Strictness{"DuplicateKeyLastWins", tree(R"("flag":false,"flag":true)"), true}),
    [](const auto& row) { return row.param.name; });

TEST(JsonDocument, DepthCostsNoStack) {
  EXPECT_FALSE(decoded<Tree>(std::string(131072, '[')));
  EXPECT_TRUE(decoded<Tree>(tree("\"x\":" + std::string(60000, '[') + std::string(60000, ']'))));
  EXPECT_TRUE(isJsonObjectOrArray(" \n" + std::string(8000, '[') + std::string(8000, ']') + " "));
  EXPECT_FALSE(isJsonObjectOrArray(std::string(16384, '[')));
  EXPECT_FALSE(isJsonObjectOrArray("\"text\""));
  EXPECT_FALSE(isJsonObjectOrArray("{} {}"));
}

TEST(Base64, IsTheSameWhereverABorrowedTextIsCut) {
  const std::string text = "any carnal pleas";
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    ByteQueue out;
    appendBase64(out, CarriedBytes(bytesOf(text).first(cut), bytesOf(text).subspan(cut)));
    EXPECT_EQ(out.text(), "YW55IGNhcm5hbCBwbGVhcw==") << cut;
  }
}

TEST(ByteQueue, GivesBackWhatWasPutInWhateverTheSteps) {
  ByteQueue queue;
  std::string model;
  unsigned step = 1;
  for (int round = 0; round < 2000; ++round) {
    step = step * 1103515245 + 12345;
    const std::string piece((step >> 16) % 700, static_cast<char>('a' + round % 26));
    queue.append(piece);
    model += piece;
    const std::size_t taken = std::min<std::size_t>((step >> 8) % 720, model.size());
    queue.consume(taken);
    model.erase(0, taken);
    ASSERT_EQ(queue.text(), model);
  }
}

}  // namespace
}  // namespace velotide
