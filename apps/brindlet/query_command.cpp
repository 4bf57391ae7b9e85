#include "apps/brindlet/query_command.h"

#include "apps/brindlet/source_session.h"

int RunQuery(const QueryOptions& options, std::ostream& out, std::ostream& err) {
  CSourceSession session(options.file, err);
  if (!session.Ok()) return kExitFailure;
  for (const std::string& keyword : options.keywords) out << session.Query(keyword) << "\n";
  return kExitOk;
}
