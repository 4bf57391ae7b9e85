// The system's help library as the stand-in has it: HtmlHelpA, its export
// of ordinal 14, shows a topic of a help file. A help file here is a folder
// of HTML pages named like the compiled file ("Brindlet.chm/html/x.htm"),
// and a topic opens in the user's browser through ShellExecuteA.
#include <sys/stat.h>

#include <string>

#include "platform/com/objbase.h"
#include "platform/window/htmlhelp.h"
#include "platform/window/shellapi.h"

extern "C" __attribute__((visibility("default"))) HWND WINAPI HtmlHelpA(HWND caller, LPCSTR file, UINT command,
                                                                        DWORD_PTR data) {
  if (file == nullptr || command != HH_DISPLAY_TOPIC) return nullptr;
  std::string helpFile = file;
  std::string topic = data != 0 ? reinterpret_cast<const char*>(data) : "";
  // "file.chm::/topic.htm" names the topic in the file name.
  if (const std::size_t split = helpFile.find("::"); split != std::string::npos) {
    if (topic.empty()) topic = helpFile.substr(split + 2);
    helpFile.resize(split);
  }
  struct stat info {};
  if (::stat(helpFile.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return nullptr;
  if (topic.empty()) topic = "/index.htm";
  if (topic.front() != '/') topic.insert(topic.begin(), '/');
  const std::string page = helpFile + topic;
  if (::stat(page.c_str(), &info) != 0) return nullptr;
  const HINSTANCE result = ShellExecuteA(caller, "open", ("file://" + page).c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  if (reinterpret_cast<std::intptr_t>(result) <= 32) return nullptr;
  // The help window is the browser's; the caller stands for it.
  return caller != nullptr ? caller : reinterpret_cast<HWND>(1);
}

extern "C" __attribute__((visibility("default"))) const PlatformOrdinalExport PlatformOrdinals[] = {
    {14, "HtmlHelpA"},
    {0, nullptr},
};
