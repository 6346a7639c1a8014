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
  const std::string note = "tab\t quote\" escape\x1b nul" + std::string(1, '\0') + " \xc3\xa9";
  value.leaves = {{Leaf{note, Shade::dark}, Leaf{}}};
  value.map = {{"B", "2"}, {"A", ""}};
  const std::string text = encoded(value);
  EXPECT_EQ(text.find_first_of("\n\x1b"), std::string::npos)
      << "control characters must be escaped: " << text;
  EXPECT_EQ(decoded<Tree>(text), value) << text;
}

TEST(Record, WritesPresentFieldsInDeclarationOrder) {
  EXPECT_EQ(encoded(Leaf{}), R"({"shade":"light"})");
  EXPECT_EQ(encoded(Leaf{"", Shade::dark}), R"({"note":"","shade":"dark-er"})");
  Tree infinite;
  infinite.real = std::numeric_limits<double>::infinity();
  EXPECT_EQ(encoded(infinite), "<failed>");
}

TEST(StrictDecoding, AcceptsOrRefuses) {
  using Texts = std::vector<std::string>;
  const std::string whole = tree("");
  EXPECT_TRUE(decoded<Tree>(" \t\r\n" + whole + "\r\n "));
  for (const std::string& text : Texts{"", "[]", R"({"natural":1})", whole + "x", whole + "{}"})
    EXPECT_FALSE(decoded<Tree>(text)) << text;
  for (const std::string& field :
       Texts{R"("x":{"natural":[1,{"id":3}]},"y":[[],{}])", R"("data":null,"leaves":null)",
             R"("natural":2.0,"integer":1e3)", R"("natural":18446744073709551615)", R"("integer":0e88)",
             R"("id":"abcdefab-0000-4000-8000-0123456789ab")", R"("x":"\ud83d\ude00")",
             R"("flag":false,"flag":true)"})
    EXPECT_TRUE(decoded<Tree>(tree(field))) << field;
  for (const std::string& field :
       Texts{// Types.
             R"("flag":null)", R"("data":7)", R"("integer":"1")", R"("leaves":[{"shade":"Light"}])",
             // Numbers that are not whole or out of range, also when only rounding brings them into it.
             R"("integer":1.5)", R"("natural":-1)", R"("natural":18446744073709551616)",
             R"("integer":2147483648)", R"("x":0,"natural":18446744073709551615.0)", R"("integer":1e300)",
             "\"real\":" + std::string(5000, '9'),
             // Identifiers and bytes.
             R"("id":"ABCDEFAB")", R"("id":"0000000-00000-0000-0000-000000000000")", R"("data":"AA=A")",
             R"("data":"AAA ")", R"("data":"AA")",
             // UTF-8 that is invalid, overlong, cut, beyond the last character or a surrogate.
             "\"x\":\"\xff\"", "\"x\":\"abcdefghijk\xc0\xaf\"",
             "\"leaves\":[{\"note\":\"\xc3\",\"shade\":\"light\"}]", "\"x\":\"\xf4\x90\x80\x80\"",
             "\"x\":\"\xed\xa0\x80\"", R"("x":"\ud83d")", R"("x":"\ude00")",
             // Raw control characters.
             "\"x\":\"a long enough text with an \x1b inside it\"", "\"x\":\"a\tb\"",
             std::string("\"x\":\"a\0b\"", 9)})
    EXPECT_FALSE(decoded<Tree>(tree(field))) << field;
}

TEST(StrictDecoding, ReadsEveryNumberExactly) {
  for (const char* number :
       {"0.1", "0e88", "786543210.1234567", "2.2250738585072011e-308", "5e-324", "1e-400",
        "1.7976931348623157e308", "18446744073709551615.7",
        "0.00000000000000000000000018446744073709551615516", "1.8446744073709551615999e5"})
    EXPECT_EQ(decoded<Tree>(tree("\"real\":" + std::string(number)))->real, std::strtod(number, nullptr))
        << number;
  const std::string sevens = "0." + std::string(100000, '7');
  EXPECT_EQ(decoded<Tree>(tree("\"real\":" + sevens))->real, 7.0 / 9);
  for (const char* number : {"9e308", "1.7976931348623159e308", "99999999999e300", "1e309"})
    EXPECT_FALSE(decoded<Tree>(tree("\"real\":" + std::string(number)))) << number;
}

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

}  // namespace
}  // namespace velotide
