// Variant: type tags and their bit tests, assignment, conversions, members
// and container operations.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "qira/variant/variant.h"

namespace {

using qira::variant::IsIntegerType;
using qira::variant::IsMapType;
using qira::variant::IsStringType;
using qira::variant::Variant;
using qira::variant::VariantType;

struct TagCase {
  VariantType tag;
  bool integer;
  bool string;
  bool map;
};

TEST(VariantTypeTest, EveryTagPassesExactlyItsOwnBitTest) {
  using namespace qira::variant;
  const TagCase cases[] = {
      {V_NULL, false, false, false},   {V_BOOL, false, false, false},
      {V_DOUBLE, false, false, false}, {V_INT8, true, false, false},
      {V_UINT8, true, false, false},   {V_INT16, true, false, false},
      {V_UINT16, true, false, false},  {V_INT32, true, false, false},
      {V_UINT32, true, false, false},  {V_INT64, true, false, false},
      {V_UINT64, true, false, false},  {V_STRING, false, true, false},
      {V_MAP, false, false, true},     {V_ARRAY, false, false, false},
  };
  for (const TagCase& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << "tag 0x" << static_cast<unsigned int>(c.tag));
    EXPECT_EQ(c.integer, IsIntegerType(c.tag));
    EXPECT_EQ(c.string, IsStringType(c.tag));
    EXPECT_EQ(c.map, IsMapType(c.tag));
  }
}

TEST(VariantTypeTest, BitTestsAreTheDocumentedMasks) {
  EXPECT_TRUE(IsIntegerType(static_cast<VariantType>(0x4000)));
  EXPECT_TRUE(IsStringType(static_cast<VariantType>(4110)));
  EXPECT_TRUE(IsStringType(static_cast<VariantType>(0x100F)));
  EXPECT_FALSE(IsStringType(static_cast<VariantType>(0x100C)));
  EXPECT_TRUE(IsMapType(static_cast<VariantType>(0x1011)));
  EXPECT_FALSE(IsMapType(static_cast<VariantType>(0x1012)));
}

TEST(VariantAssignTest, EveryScalarWidthTakesItsTag) {
  using namespace qira::variant;
  Variant v;
  EXPECT_EQ(V_NULL, v.Type());
  v = static_cast<signed char>(-5);
  EXPECT_EQ(V_INT8, v.Type());
  EXPECT_EQ(-5, static_cast<long long>(v));
  v = static_cast<unsigned char>(200);
  EXPECT_EQ(V_UINT8, v.Type());
  EXPECT_EQ(200ULL, static_cast<unsigned long long>(v));
  v = static_cast<short>(-300);
  EXPECT_EQ(V_INT16, v.Type());
  EXPECT_EQ(-300, static_cast<long long>(v));
  v = static_cast<unsigned short>(65535);
  EXPECT_EQ(V_UINT16, v.Type());
  EXPECT_EQ(65535ULL, static_cast<unsigned long long>(v));
  v = -70000;
  EXPECT_EQ(V_INT32, v.Type());
  EXPECT_EQ(-70000, static_cast<long long>(v));
  v = 4000000000U;
  EXPECT_EQ(V_UINT32, v.Type());
  EXPECT_EQ(4000000000ULL, static_cast<unsigned long long>(v));
  v = -5000000000LL;
  EXPECT_EQ(V_INT64, v.Type());
  EXPECT_EQ(-5000000000LL, static_cast<long long>(v));
  v = 18446744073709551615ULL;
  EXPECT_EQ(V_UINT64, v.Type());
  EXPECT_EQ(18446744073709551615ULL, static_cast<unsigned long long>(v));
  v = true;
  EXPECT_EQ(V_BOOL, v.Type());
  EXPECT_EQ(1, static_cast<long long>(v));
  v = 2.5;
  EXPECT_EQ(V_DOUBLE, v.Type());
  EXPECT_EQ(2.5, v.AsDouble());
  EXPECT_EQ(0, static_cast<long long>(v));
  v = "text";
  EXPECT_EQ(V_STRING, v.Type());
  EXPECT_EQ("text", static_cast<const std::string&>(v));
  v = std::string("other");
  EXPECT_EQ("other", static_cast<const std::string&>(v));
  EXPECT_EQ(V_STRING, static_cast<VariantType>(v));
}

TEST(VariantAssignTest, LongTakesTheTagOfItsWidth) {
  Variant v;
  v = 7L;
  EXPECT_EQ(sizeof(long) == 8 ? qira::variant::V_INT64 : qira::variant::V_INT32, v.Type());
  v = 7UL;
  EXPECT_EQ(sizeof(long) == 8 ? qira::variant::V_UINT64 : qira::variant::V_UINT32, v.Type());
}

TEST(VariantConvertTest, NonStringReadsAsEmptyStringAndNonIntegerAsZero) {
  Variant v;
  v = 42;
  EXPECT_EQ("", static_cast<const std::string&>(v));
  v = "42";
  EXPECT_EQ(0, static_cast<long long>(v));
  EXPECT_EQ(0ULL, static_cast<unsigned long long>(v));
  v = -1;
  EXPECT_EQ(18446744073709551615ULL, static_cast<unsigned long long>(v));
}

TEST(VariantMemberTest, IndexCreatesNullMemberAndTurnsScalarIntoMap) {
  Variant v;
  v = 5;
  Variant& member = v["ifname"];
  EXPECT_EQ(qira::variant::V_MAP, v.Type());
  EXPECT_TRUE(member.IsNull());
  member = "wlan0";
  v[std::string("ifindex")] = 3;
  EXPECT_EQ(2U, v.Size());
  EXPECT_EQ("wlan0", static_cast<const std::string&>(v["ifname"]));
  EXPECT_EQ(3, static_cast<long long>(v["ifindex"]));
}

TEST(VariantMemberTest, ConstIndexReturnsSharedNullWithoutCreating) {
  Variant v;
  v["a"] = 1;
  const Variant& view = v;
  const Variant& missing = view["b"];
  EXPECT_TRUE(missing.IsNull());
  EXPECT_EQ(&missing, &view["c"]);
  EXPECT_FALSE(v.HasKey("b"));
  EXPECT_EQ(1U, v.Size());
  Variant scalar;
  scalar = "x";
  const Variant& scalar_view = scalar;
  EXPECT_TRUE(scalar_view["a"].IsNull());
  EXPECT_EQ(qira::variant::V_STRING, scalar.Type());
  EXPECT_EQ(1, static_cast<long long>(view["a"]));
}

TEST(VariantCopyTest, CopyIsDeepAndMoveEmptiesTheSource) {
  Variant original;
  original["wifi"]["ssid"] = "cam";
  Variant copy(original);
  copy["wifi"]["ssid"] = "other";
  EXPECT_EQ("cam", static_cast<const std::string&>(original["wifi"]["ssid"]));
  Variant moved(std::move(copy));
  EXPECT_TRUE(copy.IsNull());  // NOLINT(bugprone-use-after-move): moved-from state is defined
  EXPECT_EQ("other", static_cast<const std::string&>(moved["wifi"]["ssid"]));
  Variant assigned;
  assigned = original;
  EXPECT_TRUE(assigned == original);
}

TEST(VariantCopyTest, AssigningAMemberOfItselfKeepsTheMember) {
  Variant v;
  v["inner"]["x"] = 1;
  v = v["inner"];
  EXPECT_EQ(1U, v.Size());
  EXPECT_EQ(1, static_cast<long long>(v["x"]));
  Variant w;
  w["inner"]["y"] = "z";
  Variant inner = std::move(w["inner"]);
  w = std::move(inner);
  EXPECT_EQ("z", static_cast<const std::string&>(w["y"]));
}

TEST(VariantContainerTest, IsArrayDeclaresTheKindOfNullAndContainers) {
  Variant v;
  EXPECT_TRUE(v.IsArray(true));
  EXPECT_EQ(qira::variant::V_ARRAY, v.Type());
  v.Append(Variant());
  EXPECT_FALSE(v.IsArray(false));
  EXPECT_EQ(qira::variant::V_MAP, v.Type());
  EXPECT_EQ(0U, v.Size());
  v["k"] = 1;
  EXPECT_FALSE(v.IsArray(false));
  EXPECT_EQ(1U, v.Size());  // same kind: kept
  Variant scalar;
  scalar = 3;
  EXPECT_FALSE(scalar.IsArray(true));
  EXPECT_EQ(qira::variant::V_INT32, scalar.Type());
  EXPECT_EQ(3, static_cast<long long>(scalar));
}

TEST(VariantContainerTest, FreeThenIsArrayFalseRepairsABadRecord) {
  Variant record;
  record = "not a map";
  record.Free();
  EXPECT_TRUE(record.IsNull());
  EXPECT_FALSE(record.IsArray(false));
  EXPECT_TRUE(IsMapType(record.Type()));
  EXPECT_EQ(0U, record.Size());
}

TEST(VariantContainerTest, ResetKeepsContainerKindAndNullsScalars) {
  Variant map;
  map["a"] = 1;
  map.Reset();
  EXPECT_EQ(qira::variant::V_MAP, map.Type());
  EXPECT_EQ(0U, map.Size());
  Variant array;
  array.Append(Variant());
  array.Reset();
  EXPECT_EQ(qira::variant::V_ARRAY, array.Type());
  EXPECT_EQ(0U, array.Size());
  Variant text;
  text = "x";
  text.Reset();
  EXPECT_TRUE(text.IsNull());
}

TEST(VariantContainerTest, HasKeyEraseAppendAsMapAsArray) {
  Variant v;
  v["a"] = 1;
  v["b"] = 2;
  EXPECT_TRUE(v.HasKey("a"));
  EXPECT_TRUE(v.Erase("a"));
  EXPECT_FALSE(v.Erase("a"));
  EXPECT_FALSE(v.HasKey("a"));
  ASSERT_NE(nullptr, v.AsMap());
  EXPECT_EQ(1U, v.AsMap()->count("b"));
  EXPECT_EQ(nullptr, v.AsArray());
  Variant list;
  Variant element;
  element = "first";
  list.Append(element) = "changed";
  list.Append(element);
  ASSERT_NE(nullptr, list.AsArray());
  ASSERT_EQ(2U, list.AsArray()->size());
  EXPECT_EQ("changed", static_cast<const std::string&>((*list.AsArray())[0]));
  EXPECT_EQ("first", static_cast<const std::string&>((*list.AsArray())[1]));
  EXPECT_EQ(nullptr, list.AsMap());
}

TEST(VariantCompareTest, EqualityNeedsSameTagAndValue) {
  Variant a;
  Variant b;
  EXPECT_TRUE(a == b);
  a = 1;
  b = 1U;
  EXPECT_TRUE(a != b);
  b = 1;
  EXPECT_TRUE(a == b);
  a["x"] = "y";
  b["x"] = "y";
  EXPECT_TRUE(a == b);
  b["x"] = "z";
  EXPECT_FALSE(a == b);
}

TEST(VariantConvertTest, AsBoolAndAsDouble) {
  Variant v;
  EXPECT_FALSE(v.AsBool());
  v = 3;
  EXPECT_TRUE(v.AsBool());
  EXPECT_EQ(3.0, v.AsDouble());
  v = 0.0;
  EXPECT_FALSE(v.AsBool());
  v = 18446744073709551615ULL;
  EXPECT_EQ(18446744073709551615.0, v.AsDouble());
}

}  // namespace
