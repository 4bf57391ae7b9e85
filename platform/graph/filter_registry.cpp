#include "platform/graph/filter_registry.h"

#include <utility>

#include "platform/graph/filter_store.h"

namespace platform_internal {

std::vector<RegisteredFilter> MatchingFilters(const FilterQuery& query) {
  FilterSearch search;
  search.query = query;
  std::vector<RegisteredFilter> filters;
  for (FilterEntry& entry : FindFilters(search)) {
    RegisteredFilter filter;
    filter.clsid = entry.clsid;
    filter.name = std::move(entry.name);
    filter.merit = entry.data.merit;
    for (FilterDataPin& pin : entry.data.pins) {
      filter.pins.push_back(RegisteredPin{pin.flags, std::move(pin.types)});
    }
    filters.push_back(std::move(filter));
  }
  return filters;
}

}  // namespace platform_internal
