// The H.264 Analyzer page: the logged sequence parameters with a remark on some.
#pragma once

#include "host/property_page.h"

class CH264AnalyzerPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
};
