// The PID Info page: the PID census as a table with a reading of each PID, and two summaries.
#pragma once

#include "host/property_page.h"

class CPidInfoPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
};
