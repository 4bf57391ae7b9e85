#include "analysis/program_table.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

std::unique_ptr<PatRecord> Pat(std::initializer_list<PatRecord::Row> rows) {
  auto pat = std::make_unique<PatRecord>();
  for (const PatRecord::Row& row : rows) pat->rows[pat->program_count++] = row;
  return pat;
}

TEST(CProgramTable, FindIndexAnswersTheSlotOrLeavesTheIndexAlone) {
  CProgramTable table;
  const auto pat = Pat({{0, 0x10}, {4, 0x104}, {2, 0x102}});
  for (int row = 0; row < 3; ++row) ASSERT_EQ(table.AddFromPat(*pat, row), 1);
  int index = -7;
  EXPECT_EQ(table.FindIndex(2, &index), 1);
  EXPECT_EQ(index, 2);
  EXPECT_EQ(table.FindIndex(0, &index), 1);
  EXPECT_EQ(index, 0);
  index = -7;
  EXPECT_EQ(table.FindIndex(3, &index), 0);
  EXPECT_EQ(index, -7);
  EXPECT_EQ(table.AddFromPat(*pat, -1), 0);
  EXPECT_EQ(table.AddFromPat(*pat, kMaxPatRows), 0);
  EXPECT_EQ(table.Count(), 3);
}

TEST(CProgramTable, ServiceNameGoesToItsProgramCutTo35) {
  CProgramTable table;
  const auto pat = Pat({{1, 0x101}, {2, 0x102}});
  for (int row = 0; row < 2; ++row) ASSERT_EQ(table.AddFromPat(*pat, row), 1);
  const std::string longName(40, 'n');
  table.SetServiceName(2, longName.c_str());
  table.SetServiceName(3, "Nobody");
  EXPECT_STREQ(table.Entry(0).name, "");
  EXPECT_EQ(std::string(table.Entry(1).name), longName.substr(0, kProgramNameSize - 1));
  table.SetServiceName(2, "");
  EXPECT_STREQ(table.Entry(1).name, "");
}

}  // namespace
