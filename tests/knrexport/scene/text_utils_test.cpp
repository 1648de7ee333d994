// Option lists, file paths and typed numbers.
#include "knrexport/scene/text_utils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

std::vector<std::string> Items(std::string text) {
  std::vector<std::string> items;
  char* cursor = text.data();
  char* token = nullptr;
  while (GetTag(nullptr, cursor, token)) items.emplace_back(token);
  return items;
}

TEST(TextUtilsTest, GetTagSplitsSqueezesAndStopsAtAnEmptyItem) {
  EXPECT_EQ(Items("Nub; End Site ;;Foo"), (std::vector<std::string>{"Nub", "EndSite"}));
  EXPECT_EQ(Items(" a ;  ;b"), (std::vector<std::string>{"a"}));
  EXPECT_EQ(Items("x;y"), (std::vector<std::string>{"x", "y"}));
  EXPECT_TRUE(Items("").empty());
  EXPECT_EQ(Items("\tTab\n"), (std::vector<std::string>{"Tab"}));

  // The cursor has moved past the blank item when the list stops.
  std::string text = "a; ;b";
  char* cursor = text.data();
  char* token = nullptr;
  ASSERT_TRUE(GetTag(nullptr, cursor, token));
  EXPECT_FALSE(GetTag(nullptr, cursor, token));
  ASSERT_NE(cursor, nullptr);
  EXPECT_STREQ(cursor, "b");
  char* none = nullptr;
  EXPECT_FALSE(GetTag(nullptr, none, token));
}

TEST(TextUtilsTest, PathsKeepOrDropTheSeparator) {
  Zyra::CString dir(L"unchanged");
  ExtractFilePath(L"/tmp/a/b.knrn", dir);
  EXPECT_EQ(dir, Zyra::CString(L"/tmp/a"));
  EXPECT_EQ(ExtractPath(L"/tmp/a/b.knrn"), Zyra::CString(L"/tmp/a/"));
  EXPECT_EQ(ExtractPath(L"C:\\actors\\fred.zyra"), Zyra::CString(L"C:\\actors\\"));
  EXPECT_EQ(ExtractPath(L"/tmp/a/"), Zyra::CString(L"/tmp/a/"));
  Zyra::CString untouched(L"keep");
  ExtractFilePath(L"bare.zyra", untouched);
  EXPECT_EQ(untouched, Zyra::CString(L"keep"));
  EXPECT_TRUE(ExtractPath(L"bare.zyra").IsEmpty());
  EXPECT_TRUE(ExtractPath(L"").IsEmpty());
}

TEST(TextUtilsTest, TypedNumbersAcceptSignPointAndExponent) {
  EXPECT_FLOAT_EQ(mywcstof(L"0.125"), 0.125f);
  EXPECT_FLOAT_EQ(mywcstof(L"  -2.5"), -2.5f);
  EXPECT_FLOAT_EQ(mywcstof(L"+3"), 3.0f);
  EXPECT_FLOAT_EQ(mywcstof(L".5"), 0.5f);
  EXPECT_FLOAT_EQ(mywcstof(L"1.5e2"), 150.0f);
  EXPECT_FLOAT_EQ(mywcstof(L"9.27476E-16"), 9.27476e-16f);
  EXPECT_FLOAT_EQ(mywcstof(L"2e"), 2.0f) << "an exponent without digits is not part of the number";
  EXPECT_FLOAT_EQ(mywcstof(L"7cm"), 7.0f);
  EXPECT_FLOAT_EQ(mywcstof(L"abc"), 0.0f);
  EXPECT_FLOAT_EQ(mywcstof(L"-"), 0.0f);
  EXPECT_FLOAT_EQ(mywcstof(nullptr), 0.0f);
}

}  // namespace
