#include "apps/brindlet/settings_command.h"

#include <charconv>

#include "apps/brindlet/query_command.h"
#include "control/settings_store.h"

namespace {

// The value as the filter would read it, and whether it is stored or the
// default.
std::string Describe(const SettingDefinition& d, bool* stored) {
  if (d.isText) {
    const auto text = ReadSettingString(d.name);
    *stored = text.has_value();
    return text ? *text : d.defaultText;
  }
  DWORD value = d.defaultNumber;
  *stored = ReadSettingDword(d.name, &value);
  return std::to_string(value);
}

bool ParseNumber(const std::string& text, DWORD* value) {
  const char* begin = text.data();
  const char* end = text.data() + text.size();
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    begin += 2;
    base = 16;
  }
  unsigned long long parsed = 0;
  const auto [at, error] = std::from_chars(begin, end, parsed, base);
  if (error != std::errc() || at != end || begin == end || parsed > 0xFFFFFFFFull) return false;
  *value = static_cast<DWORD>(parsed);
  return true;
}

}  // namespace

int RunSettings(const SettingsOptions& options, std::ostream& out, std::ostream& err) {
  if (options.action == "list") {
    for (const SettingDefinition& d : kSettingDefinitions) {
      bool stored = false;
      const std::string value = Describe(d, &stored);
      out << d.name << "=" << value << (stored ? "" : "  (default)") << "\n";
    }
    return kExitOk;
  }
  if (options.action == "reset") {
    if (!ResetSettings()) {
      err << "brindlet: cannot reset the settings\n";
      return kExitFailure;
    }
    return kExitOk;
  }

  const SettingDefinition* d = FindSetting(options.name);
  if (d == nullptr) {
    err << "brindlet: no setting named '" << options.name << "'\n";
    return kExitUsage;
  }
  if (options.action == "get") {
    bool stored = false;
    out << Describe(*d, &stored) << "\n";
    return kExitOk;
  }
  // set
  bool written = false;
  if (d->isText) {
    written = WriteSettingString(d->name, options.value);
  } else {
    DWORD value = 0;
    if (!ParseNumber(options.value, &value)) {
      err << "brindlet: " << d->name << " takes a number from 0 to 4294967295, not '" << options.value << "'\n";
      return kExitUsage;
    }
    written = WriteSettingDword(d->name, value);
  }
  if (!written) {
    err << "brindlet: cannot write " << d->name << "\n";
    return kExitFailure;
  }
  return kExitOk;
}
