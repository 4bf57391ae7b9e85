// The Program Info page: PAT, programs, video, audio and the PTS; it edits the settings and the file extensions.
#pragma once

#include "host/property_page.h"

class CProgramInfoPage : public CBasePropertyPage {
 public:
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
};
