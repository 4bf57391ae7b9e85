// The test module's resources: one dialog with a control of each kind the
// window layer knows, as the resource compiler would emit it.
#include "platform/win32/resources.h"
#include "platform/window/commctrl.h"

namespace {

constexpr DWORD kChild = WS_CHILD | WS_VISIBLE;

const PlatformDialogItem kItems[] = {
    {"Button", "Group", 0xFFFF, kChild | BS_GROUPBOX, 0, 4, 4, 100, 60},
    {"Static", "Label", 0xFFFF, kChild | SS_LEFT, 0, 8, 14, 30, 8},
    {"Static", "", 101, kChild | SS_SUNKEN, 0, 40, 14, 50, 8},
    {"Button", "Tick", 102, kChild | BS_AUTOCHECKBOX | WS_TABSTOP, 0, 8, 26, 80, 10},
    {"ListBox", "", 103, kChild | LBS_NOTIFY, 0, 8, 40, 80, 20},
    {"ComboBox", "", 104, WS_CHILD | CBS_DROPDOWNLIST, 0, 110, 4, 60, 40},
    {"Edit", "", 105, kChild | ES_LOWERCASE | ES_AUTOHSCROLL, 0, 110, 20, 60, 12},
    {"SysListView32", "", 106, kChild | LVS_REPORT, 0, 110, 36, 100, 40},
};

const PlatformDialogResource kDialogs[] = {
    {200, DS_SETFONT | WS_CHILD, 0, 0, 0, 220, 100, "", "MS Shell Dlg", 8, kItems, sizeof kItems / sizeof kItems[0]},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const PlatformModuleResources PlatformResources = {
    nullptr, 0, kDialogs, 1, nullptr, 0};
