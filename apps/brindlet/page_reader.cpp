#include "apps/brindlet/page_reader.h"

#include "platform/win32/resources.h"

namespace {

bool Inside(const RECT& outer, const RECT& inner) {
  return inner.left >= outer.left && inner.right <= outer.right && inner.top >= outer.top &&
         inner.bottom <= outer.bottom;
}

bool OverlapsVertically(const RECT& a, const RECT& b) { return a.top < b.bottom && b.top < a.bottom; }

// A label is a plain static without an id.
bool IsLabel(const PlatformWindowState& state) {
  return state.kind == PlatformControlKind::kStatic && state.id == -1 && !state.subclassed &&
         (state.style & SS_TYPEMASK) != SS_CENTER;
}

}  // namespace

PageView ReadPage(HWND dialog, const std::string& clsid, const std::string& title) {
  PageView view;
  view.clsid = clsid;
  view.title = title;
  if (const PlatformDialogResource* dialogTemplate = PlatformDialogTemplate(dialog)) {
    view.width = dialogTemplate->cx;
    view.height = dialogTemplate->cy;
  }
  std::vector<PlatformWindowState> all;
  for (HWND child : PlatformChildWindows(dialog)) {
    PlatformWindowState state;
    if (PlatformGetWindowState(child, &state)) all.push_back(std::move(state));
  }
  // The innermost group box around each control.
  auto groupOf = [&](const PlatformWindowState& state) {
    std::string group;
    LONG groupArea = 0;
    for (const PlatformWindowState& other : all) {
      if (other.kind != PlatformControlKind::kGroupBox || !Inside(other.dialogRect, state.dialogRect)) continue;
      const RECT& r = other.dialogRect;
      const LONG area = (r.right - r.left) * (r.bottom - r.top);
      if (groupArea == 0 || area < groupArea) {
        groupArea = area;
        group = other.text;
      }
    }
    return group;
  };
  for (const PlatformWindowState& state : all) {
    if (IsLabel(state) || state.kind == PlatformControlKind::kGroupBox) continue;
    PageControl control;
    control.state = state;
    control.kind = state.subclassed && state.kind == PlatformControlKind::kStatic
                       ? "link"
                       : PlatformControlKindName(state.kind);
    control.group = groupOf(state);
    // The nearest label on its left in the same row and group; a check box
    // names itself.
    if (state.kind == PlatformControlKind::kCheckBox) {
      control.label = state.text;
    } else {
      LONG nearest = -1;
      for (const PlatformWindowState& other : all) {
        if (!IsLabel(other) || !OverlapsVertically(other.dialogRect, state.dialogRect) ||
            other.dialogRect.right > state.dialogRect.left + 2 || groupOf(other) != control.group) {
          continue;
        }
        const LONG gap = state.dialogRect.left - other.dialogRect.right;
        if (nearest < 0 || gap < nearest) {
          nearest = gap;
          control.label = other.text;
        }
      }
    }
    view.controls.push_back(std::move(control));
  }
  return view;
}
