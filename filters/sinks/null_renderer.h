// The null renderer: takes samples, counts them and drops them.
#pragma once

#include "filters/sinks/sink_filter.h"

class CNullRenderer final : public CSinkFilter {
 public:
  // The factory function of the module's class table.
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

 private:
  CNullRenderer() : CSinkFilter("Null Renderer", CLSID_NullRenderer) {}
};
