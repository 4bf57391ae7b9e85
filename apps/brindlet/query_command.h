// `brindlet query FILE KEYWORD...`: one line per keyword, the answer or an
// empty line for none.
#pragma once

#include <ostream>
#include <string>
#include <vector>

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

struct QueryOptions {
  std::string file;
  std::vector<std::string> keywords;
};

int RunQuery(const QueryOptions& options, std::ostream& out, std::ostream& err);
