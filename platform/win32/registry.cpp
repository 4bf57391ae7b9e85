#include "platform/win32/registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
// Keys and values in memory. Every call builds the tree from the hive file
// and drops it afterwards; nothing is cached between calls.

enum class Hive { kClassesRoot, kCurrentUser, kLocalMachine };

const char* HiveName(Hive hive) {
  switch (hive) {
    case Hive::kClassesRoot:
      return "HKEY_CLASSES_ROOT";
    case Hive::kCurrentUser:
      return "HKEY_CURRENT_USER";
    case Hive::kLocalMachine:
      break;
  }
  return "HKEY_LOCAL_MACHINE";
}

// The platform folds case by upper-casing, which decides where '_' sorts
// among letters; only ASCII is folded here.
unsigned char UpperCase(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') ? static_cast<unsigned char>(u - ('a' - 'A')) : u;
}

struct NoCaseLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return UpperCase(x) < UpperCase(y); });
  }
};

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return UpperCase(x) == UpperCase(y);
         });
}

bool IsText(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ; }

struct RegValue {
  std::string name;  // empty for the default value
  DWORD type = REG_NONE;
  std::vector<BYTE> data;  // text types end in exactly one zero
};

struct CKeyNode {
  std::vector<RegValue> values;                                          // creation order
  std::map<std::string, std::unique_ptr<CKeyNode>, NoCaseLess> subkeys;  // names as created
};

using KeyPath = std::vector<std::string>;

template <typename Node>
Node* Resolve(Node* node, const KeyPath& path) {
  for (const std::string& name : path) {
    const auto it = node->subkeys.find(name);
    if (it == node->subkeys.end()) return nullptr;
    node = it->second.get();
  }
  return node;
}

CKeyNode* EnsurePath(CKeyNode* node, const KeyPath& path) {
  for (const std::string& name : path) {
    auto it = node->subkeys.find(name);
    if (it == node->subkeys.end()) {
      it = node->subkeys.emplace(name, std::make_unique<CKeyNode>()).first;
    }
    node = it->second.get();
  }
  return node;
}

template <typename Node>
auto FindValue(Node* node, std::string_view name) -> decltype(&node->values[0]) {
  for (auto& value : node->values) {
    if (SameName(value.name, name)) return &value;
  }
  return nullptr;
}

// Replaces the data of a value of that name, keeping its place and the case
// of its name, or appends it. False when it was there unchanged.
bool StoreValue(CKeyNode* node, RegValue value) {
  RegValue* existing = FindValue(node, value.name);
  if (existing == nullptr) {
    node->values.push_back(std::move(value));
    return true;
  }
  if (existing->type == value.type && existing->data == value.data) return false;
  existing->type = value.type;
  existing->data = std::move(value.data);
  return true;
}

std::vector<BYTE> TextData(std::string_view text) {
  std::vector<BYTE> data(text.begin(), text.end());
  data.push_back(0);
  return data;
}

std::string_view TextOf(const RegValue& value) {
  return {reinterpret_cast<const char*>(value.data.data()), value.data.size() - 1};
}

bool IsKeyName(std::string_view name) {
  return !name.empty() && std::none_of(name.begin(), name.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return u < 0x20 || u == 0x7F;
  });
}

// Appends the components of a relative path, as the header describes.
bool AppendSubKey(std::string_view text, bool fromFile, KeyPath* path) {
  if (!text.empty() && text.front() == '\\') return false;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\\', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view name = text.substr(start, end - start);
    if (name.empty()) {
      if (fromFile) return false;  // we never write those; the file is damaged
    } else {
      if (!IsKeyName(name)) return false;
      path->emplace_back(name);
    }
    start = end + 1;
  }
  if (fromFile && !text.empty() && text.back() == '\\') return false;
  return path->size() <= kRegMaxKeyDepth;
}

// ---------------------------------------------------------------------------
// The text format (see the header).

constexpr std::string_view kHeader = "BRINDLET REGISTRY 1";
constexpr std::string_view kEnd = "END";
constexpr char kHexDigits[] = "0123456789abcdef";

void AppendQuoted(std::string* out, std::string_view text) {
  *out += '"';
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    switch (c) {
      case '\\':
        *out += "\\\\";
        break;
      case '"':
        *out += "\\\"";
        break;
      case '\n':
        *out += "\\n";
        break;
      case '\r':
        *out += "\\r";
        break;
      case '\t':
        *out += "\\t";
        break;
      default:
        if (u < 0x20 || u == 0x7F) {
          *out += "\\x";
          *out += kHexDigits[u >> 4];
          *out += kHexDigits[u & 0x0F];
        } else {
          *out += c;
        }
    }
  }
  *out += '"';
}

void AppendHexBytes(std::string* out, const std::vector<BYTE>& data) {
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0) *out += ',';
    *out += kHexDigits[data[i] >> 4];
    *out += kHexDigits[data[i] & 0x0F];
  }
}

void AppendValue(std::string* out, const RegValue& value) {
  if (value.name.empty()) {
    *out += '@';
  } else {
    AppendQuoted(out, value.name);
  }
  *out += '=';
  char number[32];
  if (value.type == REG_SZ) {
    AppendQuoted(out, TextOf(value));
  } else if (value.type == REG_EXPAND_SZ) {
    *out += "expand:";
    AppendQuoted(out, TextOf(value));
  } else if (value.type == REG_DWORD && value.data.size() == 4) {
    const DWORD number32 = value.data[0] | (DWORD{value.data[1]} << 8) |
                           (DWORD{value.data[2]} << 16) | (DWORD{value.data[3]} << 24);
    std::snprintf(number, sizeof number, "dword:%08x", number32);
    *out += number;
  } else {
    if (value.type == REG_BINARY) {
      *out += "hex:";
    } else {
      std::snprintf(number, sizeof number, "hex(%x):", value.type);
      *out += number;
    }
    AppendHexBytes(out, value.data);
  }
  *out += '\n';
}

void AppendKey(std::string* out, std::string* path, const CKeyNode& node) {
  *out += "\n[" + *path + "]\n";
  for (const RegValue& value : node.values) AppendValue(out, value);
  for (const auto& [name, child] : node.subkeys) {
    const std::size_t mark = path->size();
    if (!path->empty()) *path += '\\';
    *path += name;
    AppendKey(out, path, *child);
    path->resize(mark);
  }
}

std::string FormatHive(const CKeyNode& root, Hive hive) {
  std::string out(kHeader);
  out += "\n; ";
  out += HiveName(hive);
  out +=
      ". Keys in [brackets] with their values below them; END closes the file.\n"
      "; Rewritten whole on every change: edit it only while no program writes.\n";
  if (!root.values.empty()) {
    out += "\n[]\n";
    for (const RegValue& value : root.values) AppendValue(&out, value);
  }
  std::string path;
  for (const auto& [name, child] : root.subkeys) {
    path = name;
    AppendKey(&out, &path, *child);
  }
  out += "\nEND\n";
  return out;
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool ParseHexNumber(std::string_view digits, DWORD* number) {
  if (digits.empty() || digits.size() > 8) return false;
  DWORD result = 0;
  for (const char c : digits) {
    const int digit = HexValue(c);
    if (digit < 0) return false;
    result = (result << 4) | static_cast<DWORD>(digit);
  }
  *number = result;
  return true;
}

bool ParseHexBytes(std::string_view text, std::vector<BYTE>* out) {
  text = TrimBlanks(text);
  while (!text.empty()) {
    if (text.size() < 2 || HexValue(text[0]) < 0 || HexValue(text[1]) < 0) return false;
    out->push_back(static_cast<BYTE>(HexValue(text[0]) * 16 + HexValue(text[1])));
    text = TrimBlanks(text.substr(2));
    if (text.empty()) break;
    if (text.front() != ',') return false;
    text = TrimBlanks(text.substr(1));
    if (text.empty()) return false;
  }
  return true;
}

// Reads a quoted text at the start of *text and moves past it.
bool ParseQuoted(std::string_view* text, std::string* out, const char** reason) {
  std::string_view rest = *text;
  if (rest.empty() || rest.front() != '"') {
    *reason = "expected a quoted text";
    return false;
  }
  rest.remove_prefix(1);
  while (!rest.empty() && rest.front() != '"') {
    char c = rest.front();
    rest.remove_prefix(1);
    if (c == '\\') {
      if (rest.empty()) break;
      const char escape = rest.front();
      rest.remove_prefix(1);
      switch (escape) {
        case '\\':
        case '"':
          c = escape;
          break;
        case 'n':
          c = '\n';
          break;
        case 'r':
          c = '\r';
          break;
        case 't':
          c = '\t';
          break;
        case 'x': {
          DWORD code = 0;
          if (rest.size() < 2 || !ParseHexNumber(rest.substr(0, 2), &code)) {
            *reason = "\\x needs two hex digits";
            return false;
          }
          rest.remove_prefix(2);
          c = static_cast<char>(code);
          break;
        }
        default:
          *reason = "unknown escape in text";
          return false;
      }
      if (c == '\0') {
        *reason = "zero byte in text";
        return false;
      }
    }
    *out += c;
  }
  if (rest.empty()) {
    *reason = "text without closing quote";
    return false;
  }
  rest.remove_prefix(1);
  *text = rest;
  return true;
}

bool TakePrefix(std::string_view* text, std::string_view prefix) {
  if (text->size() < prefix.size() || !SameName(text->substr(0, prefix.size()), prefix)) {
    return false;
  }
  text->remove_prefix(prefix.size());
  return true;
}

// The part after '=' of a value line.
bool ParseData(std::string_view text, RegValue* value, const char** reason) {
  *reason = "bad value data";
  if (!text.empty() && text.front() == '"') {
    value->type = REG_SZ;
  } else if (TakePrefix(&text, "expand:")) {
    value->type = REG_EXPAND_SZ;
  } else if (TakePrefix(&text, "dword:")) {
    DWORD number = 0;
    if (!ParseHexNumber(TrimBlanks(text), &number)) return false;
    value->type = REG_DWORD;
    value->data = {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8),
                   static_cast<BYTE>(number >> 16), static_cast<BYTE>(number >> 24)};
    return true;
  } else if (TakePrefix(&text, "hex:")) {
    value->type = REG_BINARY;
    return ParseHexBytes(text, &value->data);
  } else if (TakePrefix(&text, "hex(")) {
    const std::size_t close = text.find("):");
    if (close == std::string_view::npos || !ParseHexNumber(text.substr(0, close), &value->type)) {
      return false;
    }
    return ParseHexBytes(text.substr(close + 2), &value->data);
  } else {
    *reason = "unknown value type";
    return false;
  }
  std::string content;
  if (!ParseQuoted(&text, &content, reason)) return false;
  if (!TrimBlanks(text).empty()) {
    *reason = "text after the closing quote";
    return false;
  }
  value->data = TextData(content);
  return true;
}

struct ParseFailure {
  std::size_t line = 0;
  const char* reason = "";
};

bool ParseHive(std::string_view text, CKeyNode* root, ParseFailure* failure) {
  std::size_t lineNumber = 0;
  bool ended = false;
  CKeyNode* current = nullptr;
  const auto fail = [&](const char* reason) {
    failure->line = lineNumber;
    failure->reason = reason;
    return false;
  };
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t eol = text.find('\n', pos);
    if (eol == std::string_view::npos) eol = text.size();
    std::string_view line = text.substr(pos, eol - pos);
    pos = eol + 1;
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);  // edited on Windows
    if (lineNumber == 1) {
      if (line != kHeader) return fail("not a registry hive");
      continue;
    }
    line = TrimBlanks(line);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (ended) return fail("text after END");
    if (line == kEnd) {
      ended = true;
    } else if (line.front() == '[') {
      KeyPath path;
      if (line.size() < 2 || line.back() != ']') return fail("key line without closing ]");
      if (!AppendSubKey(line.substr(1, line.size() - 2), true, &path)) return fail("bad key path");
      current = EnsurePath(root, path);
    } else if (line.front() == '"' || line.front() == '@') {
      if (current == nullptr) return fail("value before any [key] line");
      RegValue value;
      const char* reason = "";
      if (line.front() == '@') {
        line.remove_prefix(1);
      } else if (!ParseQuoted(&line, &value.name, &reason)) {
        return fail(reason);
      }
      line = TrimBlanks(line);
      if (line.empty() || line.front() != '=') return fail("value name without =");
      if (!ParseData(TrimBlanks(line.substr(1)), &value, &reason)) return fail(reason);
      StoreValue(current, std::move(value));
    } else {
      return fail("unexpected text");
    }
  }
  if (lineNumber == 0) {
    failure->line = 1;
    failure->reason = "empty file";
    return false;
  }
  return ended || fail("no END line, the file is cut short");
}

// ---------------------------------------------------------------------------
// Files. Writers hold an exclusive flock on ".lock" while they read, change
// and replace a hive; readers take no lock, since a hive file is only ever
// replaced whole by rename.

std::string RegistryDir() {
  const char* dir = std::getenv("BRINDLET_REGISTRY_DIR");
  if (dir != nullptr && *dir != '\0') return dir;
  std::string base;
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config != nullptr && config[0] == '/') {  // relative values are to be ignored
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') return {};
    base = std::string(home) + "/.config";
  }
  return base + "/brindlet/registry";
}

std::string HiveFileName(Hive hive) { return std::string(HiveName(hive)) + ".reg"; }

LONG ErrorFromErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_GEN_FAILURE;
  }
}

// 0, or the errno of the failure (ENOENT when there is no file).
int ReadWholeFile(const std::string& path, std::string* text) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return errno;
  struct stat info {};
  if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
    ::close(fd);
    return error;
  }
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(fd);
      return error;
    }
    text->append(buffer, static_cast<std::size_t>(got));
  }
  ::close(fd);
  return 0;
}

bool MakeDirectories(const std::string& dir) {
  for (std::size_t i = 1; i <= dir.size(); ++i) {
    if (i < dir.size() && dir[i] != '/') continue;
    const std::string part = dir.substr(0, i);
    if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat info {};
  if (::stat(dir.c_str(), &info) != 0) return false;
  if (!S_ISDIR(info.st_mode)) {
    errno = ENOTDIR;
    return false;
  }
  return true;
}

// Makes a rename in the directory durable. Only the move of a corrupt file
// aside asks for it: after a crash that loses an ordinary write's rename the
// hive is whole, one change older, which the fsync of the file already allows.
void SyncDirectory(const std::string& dir) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  ::fsync(fd);
  ::close(fd);
}

class CHiveLock {
 public:
  CHiveLock() = default;
  ~CHiveLock() {
    if (m_Fd >= 0) ::close(m_Fd);  // releases the lock
  }
  CHiveLock(const CHiveLock&) = delete;
  CHiveLock& operator=(const CHiveLock&) = delete;

  // Each acquisition opens the file anew, so threads of one process exclude
  // each other as well as other processes do.
  bool Acquire(const std::string& dir) {
    m_Fd = ::open((dir + "/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_Fd < 0) return false;
    while (::flock(m_Fd, LOCK_EX) != 0) {
      if (errno != EINTR) return false;
    }
    return true;
  }

 private:
  int m_Fd = -1;
};

LONG WriteHive(const std::string& dir, Hive hive, const std::string& text) {
  const std::string target = dir + "/" + HiveFileName(hive);
  const std::string temp = target + ".tmp-" + std::to_string(::getpid());
  const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return ErrorFromErrno(errno);
  int error = 0;
  std::size_t done = 0;
  while (done < text.size() && error == 0) {
    const ssize_t wrote = ::write(fd, text.data() + done, text.size() - done);
    if (wrote >= 0) {
      done += static_cast<std::size_t>(wrote);
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  if (error == 0 && ::fsync(fd) != 0) error = errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temp.c_str(), target.c_str()) != 0) error = errno;
  if (error != 0) {
    ::unlink(temp.c_str());
    return ErrorFromErrno(error);
  }
  return ERROR_SUCCESS;
}

void Report(const std::string& message) {
  std::fprintf(stderr, "brindlet registry: %s\n", message.c_str());
}

// A corrupt file that stays in place would be met by every call; it is
// reported the first time only.
void ReportStuckOnce(const std::string& path, const std::string& message) {
  static std::mutex lock;
  static auto* reported = new std::set<std::string>;  // guarded by lock
  std::lock_guard<std::mutex> guard(lock);
  if (reported->insert(path).second) Report(message);
}

std::string FailureText(const std::string& path, const ParseFailure& failure) {
  return path + " cannot be read (line " + std::to_string(failure.line) + ": " + failure.reason +
         ")";
}

// Moves a corrupt hive file aside, under the writers' lock. ERROR_BADDB when
// it has to stay: the hive then reads empty and must not be written.
LONG SetAside(const std::string& dir, Hive hive, const ParseFailure& failure) {
  const std::string fileName = HiveFileName(hive);
  const std::string path = dir + "/" + fileName;
  char stamp[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  if (::gmtime_r(&now, &utc) != nullptr) std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  const std::string base = fileName + ".corrupt-" + stamp;
  std::string aside = base;
  for (int n = 2; ::access((dir + "/" + aside).c_str(), F_OK) == 0; ++n) {
    aside = base + "-" + std::to_string(n);
  }
  if (::rename(path.c_str(), (dir + "/" + aside).c_str()) == 0) {
    SyncDirectory(dir);
    Report(FailureText(path, failure) + "; kept as " + aside + "; starting empty");
    return ERROR_SUCCESS;
  }
  ReportStuckOnce(path, FailureText(path, failure) + "; it cannot be kept aside (" +
                            std::strerror(errno) + "), so it reads empty and is not written");
  return ERROR_BADDB;
}

// The hive's tree from its file; an absent file is an empty hive.
LONG LoadHive(const std::string& dir, Hive hive, bool holdingLock, CKeyNode* root) {
  std::string text;
  const int error = ReadWholeFile(dir + "/" + HiveFileName(hive), &text);
  if (error == ENOENT || error == ENOTDIR) return ERROR_SUCCESS;
  if (error != 0) return ErrorFromErrno(error);
  ParseFailure failure;
  if (ParseHive(text, root, &failure)) return ERROR_SUCCESS;
  *root = CKeyNode();
  if (holdingLock) return SetAside(dir, hive, failure);
  // Only under the lock may the file be moved, and by then a writer may
  // already have moved or replaced it: look again.
  CHiveLock lock;
  if (!lock.Acquire(dir)) {
    const std::string path = dir + "/" + HiveFileName(hive);
    ReportStuckOnce(path, FailureText(path, failure) + "; it cannot be kept aside (" +
                              std::strerror(errno) + "), so it reads empty and is not written");
    return ERROR_BADDB;
  }
  return LoadHive(dir, hive, true, root);
}

// Runs `look` on the hive as it is on disk now.
template <typename Look>
LONG ReadHive(Hive hive, Look&& look) {
  CKeyNode root;
  const std::string dir = RegistryDir();
  if (!dir.empty()) {
    const LONG result = LoadHive(dir, hive, false, &root);
    if (result != ERROR_SUCCESS && result != ERROR_BADDB) return result;
  }
  return look(static_cast<const CKeyNode&>(root));
}

// Applies `change` (LONG(CKeyNode*, bool* changed)) to the hive and writes it
// back if it changed. A first run on an unlocked snapshot lets failures and
// changes that change nothing return without creating, locking or writing
// anything; the run under the lock is the one that counts.
template <typename Change>
LONG ChangeHive(Hive hive, Change&& change) {
  const std::string dir = RegistryDir();
  if (dir.empty()) return ERROR_PATH_NOT_FOUND;
  bool changed = false;
  {
    CKeyNode snapshot;
    LONG result = LoadHive(dir, hive, false, &snapshot);
    if (result == ERROR_SUCCESS) result = change(&snapshot, &changed);
    if (result != ERROR_SUCCESS || !changed) return result;
  }
  if (!MakeDirectories(dir)) return ErrorFromErrno(errno);
  CHiveLock lock;
  if (!lock.Acquire(dir)) return ErrorFromErrno(errno);
  CKeyNode root;
  LONG result = LoadHive(dir, hive, true, &root);
  if (result != ERROR_SUCCESS) return result;
  changed = false;
  result = change(&root, &changed);
  if (result != ERROR_SUCCESS || !changed) return result;
  return WriteHive(dir, hive, FormatHive(root, hive));
}

// ---------------------------------------------------------------------------
// Handles. A handle is the address of a KeyRef owned by the table; handles
// given to us are looked up, never dereferenced.

struct KeyRef {
  Hive hive = Hive::kCurrentUser;
  KeyPath path;
  REGSAM access = KEY_ALL_ACCESS;
};

struct KeyTable {
  std::mutex lock;
  std::unordered_map<HKEY, std::unique_ptr<KeyRef>> keys;  // guarded by lock
};

// Never destroyed, so threads still running at exit find it.
KeyTable& Keys() {
  static auto* table = new KeyTable;
  return *table;
}

bool PredefinedHive(HKEY key, Hive* hive) {
  if (key == HKEY_CLASSES_ROOT) {
    *hive = Hive::kClassesRoot;
  } else if (key == HKEY_CURRENT_USER) {
    *hive = Hive::kCurrentUser;
  } else if (key == HKEY_LOCAL_MACHINE) {
    *hive = Hive::kLocalMachine;
  } else {
    return false;
  }
  return true;
}

bool Lookup(HKEY key, KeyRef* ref) {
  Hive hive;
  if (PredefinedHive(key, &hive)) {
    *ref = KeyRef{hive, {}, KEY_ALL_ACCESS};
    return true;
  }
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  const auto it = table.keys.find(key);
  if (it == table.keys.end()) return false;
  *ref = *it->second;
  return true;
}

HKEY NewHandle(KeyRef ref) {
  auto object = std::make_unique<KeyRef>(std::move(ref));
  const HKEY handle = reinterpret_cast<HKEY>(object.get());
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  table.keys.emplace(handle, std::move(object));
  return handle;
}

constexpr REGSAM kGenericRead = 0x80000000;
constexpr REGSAM kGenericWrite = 0x40000000;
constexpr REGSAM kGenericAll = 0x10000000;

REGSAM Granted(REGSAM desired) {
  REGSAM granted = desired & KEY_ALL_ACCESS;
  if ((desired & (MAXIMUM_ALLOWED | kGenericAll)) != 0) granted |= KEY_ALL_ACCESS;
  if ((desired & kGenericRead) != 0) granted |= KEY_READ;
  if ((desired & kGenericWrite) != 0) granted |= KEY_WRITE;
  return granted;
}

bool Allows(const KeyRef& key, REGSAM right) { return (key.access & right) == right; }

// Nothing throws across the interface.
template <typename Body>
LONG Guarded(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ERROR_NOT_ENOUGH_MEMORY;
  } catch (...) {
    return ERROR_GEN_FAILURE;
  }
}

LONG CopyName(std::string_view name, LPSTR out, DWORD* size) {
  if (*size <= name.size()) return ERROR_MORE_DATA;
  std::memcpy(out, name.data(), name.size());
  out[name.size()] = '\0';
  *size = static_cast<DWORD>(name.size());
  return ERROR_SUCCESS;
}

LONG CopyData(const RegValue& value, DWORD* type, BYTE* data, DWORD* dataSize) {
  if (type != nullptr) *type = value.type;
  const auto size = static_cast<DWORD>(value.data.size());
  if (data == nullptr) {
    if (dataSize != nullptr) *dataSize = size;
    return ERROR_SUCCESS;
  }
  const bool fits = *dataSize >= size;
  if (fits && size > 0) std::memcpy(data, value.data.data(), size);
  *dataSize = size;
  return fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

LONG OpenKey(HKEY key, LPCSTR subKey, REGSAM desired, PHKEY result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (!AppendSubKey(subKey != nullptr ? subKey : "", false, &ref.path)) return ERROR_BAD_PATHNAME;
    ref.access = Granted(desired);
    const LONG found = ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      return Resolve(&root, ref.path) != nullptr ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
    if (found != ERROR_SUCCESS) return found;
    *result = NewHandle(std::move(ref));
    return ERROR_SUCCESS;
  });
}

}  // namespace

LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD /*options*/, REGSAM desired, PHKEY result) {
  return OpenKey(key, subKey, desired, result);
}

LONG RegOpenKeyA(HKEY key, LPCSTR subKey, PHKEY result) {
  return OpenKey(key, subKey, MAXIMUM_ALLOWED, result);
}

LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR /*keyClass*/, DWORD /*options*/,
                     REGSAM desired, void* /*security*/, PHKEY result, DWORD* disposition) {
  if (result == nullptr || reserved != 0) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  return Guarded([&]() -> LONG {
    KeyRef base;
    if (!Lookup(key, &base)) return ERROR_INVALID_HANDLE;
    KeyRef target = base;
    if (!AppendSubKey(subKey != nullptr ? subKey : "", false, &target.path)) {
      return ERROR_BAD_PATHNAME;
    }
    target.access = Granted(desired);
    const KeyPath below(target.path.begin() + static_cast<std::ptrdiff_t>(base.path.size()),
                        target.path.end());
    DWORD how = REG_OPENED_EXISTING_KEY;
    const LONG made = ChangeHive(base.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      how = REG_OPENED_EXISTING_KEY;
      CKeyNode* parent = Resolve(root, base.path);
      if (parent == nullptr) return ERROR_KEY_DELETED;
      if (Resolve(parent, below) != nullptr) return ERROR_SUCCESS;
      if (!Allows(base, KEY_CREATE_SUB_KEY)) return ERROR_ACCESS_DENIED;
      EnsurePath(parent, below);
      how = REG_CREATED_NEW_KEY;
      *changed = true;
      return ERROR_SUCCESS;
    });
    if (made != ERROR_SUCCESS) return made;
    *result = NewHandle(std::move(target));
    if (disposition != nullptr) *disposition = how;
    return ERROR_SUCCESS;
  });
}

LONG RegCreateKeyA(HKEY key, LPCSTR subKey, PHKEY result) {
  return RegCreateKeyExA(key, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, MAXIMUM_ALLOWED, nullptr,
                         result, nullptr);
}

LONG RegCloseKey(HKEY key) {
  Hive hive;
  if (PredefinedHive(key, &hive)) return ERROR_SUCCESS;
  std::unique_ptr<KeyRef> closing;  // freed outside the lock
  KeyTable& table = Keys();
  std::lock_guard<std::mutex> guard(table.lock);
  const auto it = table.keys.find(key);
  if (it == table.keys.end()) return ERROR_INVALID_HANDLE;
  closing = std::move(it->second);
  table.keys.erase(it);
  return ERROR_SUCCESS;
}

LONG RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, BYTE* data,
                      DWORD* dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (data != nullptr && dataSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      const RegValue* value =
          node != nullptr ? FindValue(node, name != nullptr ? name : "") : nullptr;
      if (value == nullptr) return ERROR_FILE_NOT_FOUND;
      return CopyData(*value, type, data, dataSize);
    });
  });
}

LONG RegSetValueExA(HKEY key, LPCSTR name, DWORD /*reserved*/, DWORD type, const BYTE* data,
                    DWORD dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (data == nullptr && dataSize > 0) return ERROR_NOACCESS;
    if (!Allows(ref, KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
    RegValue value;
    value.name = name != nullptr ? name : "";
    value.type = type;
    if (IsText(type)) {
      const char* text = reinterpret_cast<const char*>(data);
      value.data = TextData(dataSize > 0 ? std::string_view(text, strnlen(text, dataSize)) : "");
    } else if (dataSize > 0) {
      value.data.assign(data, data + dataSize);
    }
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* node = Resolve(root, ref.path);
      if (node == nullptr) return ERROR_KEY_DELETED;
      *changed = StoreValue(node, value);
      return ERROR_SUCCESS;
    });
  });
}

LONG RegDeleteValueA(HKEY key, LPCSTR name) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (!Allows(ref, KEY_SET_VALUE)) return ERROR_ACCESS_DENIED;
    const std::string_view wanted = name != nullptr ? name : "";
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* node = Resolve(root, ref.path);
      if (node == nullptr) return ERROR_KEY_DELETED;
      const auto it =
          std::find_if(node->values.begin(), node->values.end(),
                       [&](const RegValue& value) { return SameName(value.name, wanted); });
      if (it == node->values.end()) return ERROR_FILE_NOT_FOUND;
      node->values.erase(it);
      *changed = true;
      return ERROR_SUCCESS;
    });
  });
}

LONG RegDeleteKeyA(HKEY key, LPCSTR subKey) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (subKey == nullptr) return ERROR_INVALID_PARAMETER;
    if (!AppendSubKey(subKey, false, &ref.path)) return ERROR_BAD_PATHNAME;
    if (ref.path.empty()) return ERROR_ACCESS_DENIED;
    const std::string leaf = ref.path.back();
    ref.path.pop_back();
    return ChangeHive(ref.hive, [&](CKeyNode* root, bool* changed) -> LONG {
      CKeyNode* parent = Resolve(root, ref.path);
      if (parent == nullptr) return ERROR_FILE_NOT_FOUND;
      const auto it = parent->subkeys.find(leaf);
      if (it == parent->subkeys.end()) return ERROR_FILE_NOT_FOUND;
      parent->subkeys.erase(it);
      *changed = true;
      return ERROR_SUCCESS;
    });
  });
}

LONG RegEnumKeyExA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved,
                   LPSTR keyClass, DWORD* classSize, FILETIME* lastWriteTime) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (name == nullptr || nameSize == nullptr || reserved != nullptr ||
        (keyClass != nullptr && classSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_ENUMERATE_SUB_KEYS)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr || index >= node->subkeys.size()) return ERROR_NO_MORE_ITEMS;
      const LONG copied = CopyName(std::next(node->subkeys.begin(), index)->first, name, nameSize);
      if (copied != ERROR_SUCCESS) return copied;
      if (keyClass != nullptr) {
        if (*classSize > 0) keyClass[0] = '\0';
        *classSize = 0;
      }
      if (lastWriteTime != nullptr) *lastWriteTime = FILETIME{0, 0};
      return ERROR_SUCCESS;
    });
  });
}

LONG RegEnumValueA(HKEY key, DWORD index, LPSTR name, DWORD* nameSize, DWORD* reserved, DWORD* type,
                   BYTE* data, DWORD* dataSize) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (name == nullptr || nameSize == nullptr || reserved != nullptr ||
        (data != nullptr && dataSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr || index >= node->values.size()) return ERROR_NO_MORE_ITEMS;
      const RegValue& value = node->values[index];
      const LONG copied = CopyName(value.name, name, nameSize);
      if (copied != ERROR_SUCCESS) return copied;
      return CopyData(value, type, data, dataSize);
    });
  });
}

LONG RegQueryInfoKeyA(HKEY key, LPSTR keyClass, DWORD* classSize, DWORD* reserved, DWORD* subKeys,
                      DWORD* maxSubKeyLength, DWORD* maxClassLength, DWORD* values,
                      DWORD* maxValueNameLength, DWORD* maxValueLength,
                      DWORD* securityDescriptorSize, FILETIME* lastWriteTime) {
  return Guarded([&]() -> LONG {
    KeyRef ref;
    if (!Lookup(key, &ref)) return ERROR_INVALID_HANDLE;
    if (reserved != nullptr || (keyClass != nullptr && classSize == nullptr)) {
      return ERROR_INVALID_PARAMETER;
    }
    if (!Allows(ref, KEY_QUERY_VALUE)) return ERROR_ACCESS_DENIED;
    return ReadHive(ref.hive, [&](const CKeyNode& root) -> LONG {
      const CKeyNode* node = Resolve(&root, ref.path);
      if (node == nullptr) return ERROR_FILE_NOT_FOUND;
      std::size_t longestKey = 0;
      std::size_t longestName = 0;
      std::size_t largest = 0;
      for (const auto& entry : node->subkeys) longestKey = std::max(longestKey, entry.first.size());
      for (const RegValue& value : node->values) {
        longestName = std::max(longestName, value.name.size());
        largest = std::max(largest, value.data.size());
      }
      const auto put = [](DWORD* out, std::size_t number) {
        if (out != nullptr) *out = static_cast<DWORD>(number);
      };
      if (keyClass != nullptr && *classSize > 0) keyClass[0] = '\0';
      put(classSize, 0);
      put(subKeys, node->subkeys.size());
      put(maxSubKeyLength, longestKey);
      put(maxClassLength, 0);
      put(values, node->values.size());
      put(maxValueNameLength, longestName);
      put(maxValueLength, largest);
      put(securityDescriptorSize, 0);
      if (lastWriteTime != nullptr) *lastWriteTime = FILETIME{0, 0};
      return ERROR_SUCCESS;
    });
  });
}

LONG RegQueryValueA(HKEY key, LPCSTR subKey, LPSTR data, LONG* dataSize) {
  if (data != nullptr && dataSize == nullptr) return ERROR_INVALID_PARAMETER;
  HKEY sub = nullptr;
  LONG result = RegOpenKeyExA(key, subKey, 0, KEY_QUERY_VALUE, &sub);
  if (result != ERROR_SUCCESS) return result;
  DWORD size = dataSize != nullptr && *dataSize > 0 ? static_cast<DWORD>(*dataSize) : 0;
  result = RegQueryValueExA(sub, nullptr, nullptr, nullptr, reinterpret_cast<BYTE*>(data),
                            dataSize != nullptr ? &size : nullptr);
  RegCloseKey(sub);
  if (result == ERROR_FILE_NOT_FOUND) {  // no default value: an empty text
    const bool fits = data == nullptr || size >= 1;
    if (data != nullptr && fits) data[0] = '\0';
    size = 1;
    result = fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
  }
  if (dataSize != nullptr && (result == ERROR_SUCCESS || result == ERROR_MORE_DATA)) {
    *dataSize = static_cast<LONG>(size);
  }
  return result;
}

LONG RegSetValueA(HKEY key, LPCSTR subKey, DWORD type, LPCSTR data, DWORD /*dataSize*/) {
  if (type != REG_SZ || data == nullptr) return ERROR_INVALID_PARAMETER;
  HKEY sub = nullptr;
  LONG result = RegCreateKeyExA(key, subKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_SET_VALUE,
                                nullptr, &sub, nullptr);
  if (result != ERROR_SUCCESS) return result;
  result = RegSetValueExA(sub, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(data),
                          static_cast<DWORD>(std::strlen(data) + 1));
  RegCloseKey(sub);
  return result;
}
