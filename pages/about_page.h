// The About page: the filter's name and a link to its project page.
#pragma once

#include "host/property_page.h"

class CAboutPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
};
