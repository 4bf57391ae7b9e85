// The Programs page: the services with their names, ids and stream counts.
#pragma once

#include "host/property_page.h"

class CProgramsPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
};
