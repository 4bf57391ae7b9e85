// The stand-in's resource compiler: reads a module's resource script and
// writes a C++ source that defines the module's PlatformResources table
// (platform/win32/resources.h): its string tables, dialog templates and
// bitmaps. Other resources (the version block) are passed over by their
// BEGIN/END nesting.
//
//   rc_compile SCRIPT.rc OUT.cpp
//
// The script is the one a Windows build compiles: // and /* */ comments,
// preprocessor lines (skipped, so the headers' names come from the table in
// rc_style_names.h, and IDC_STATIC is -1), ids in decimal or 0x hex, "" for
// a quote inside text and the C escapes \n \t \\ \". Controls get the class
// and styles that the platform's resource compiler gives them: the default
// style when the statement names none, else the base style, WS_CHILD and
// WS_VISIBLE with the named bits added and NOT bits taken away.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "rc_script_reader.h"
#include "rc_style_names.h"

namespace {

using namespace rc_script;

struct DialogItem {
  std::string className;
  std::string text;
  unsigned id = 0xFFFF;
  std::uint32_t style = 0;
  std::uint32_t exStyle = 0;
  long long x = 0, y = 0, cx = 0, cy = 0;
};

struct Dialog {
  unsigned id = 0;
  std::uint32_t style = 0;
  std::uint32_t exStyle = 0;
  long long x = 0, y = 0, cx = 0, cy = 0;
  std::string caption;
  std::string fontName;
  unsigned fontSize = 0;
  std::vector<DialogItem> items;
};

struct Resources {
  std::map<unsigned long, std::string> strings;
  std::map<unsigned, Dialog> dialogs;
  std::map<unsigned, std::vector<std::uint8_t>> bitmaps;
};

// The control statements with the class and styles the platform's compiler
// gives them: `defaultStyle` when the statement names no style, `baseStyle`
// as the start of a style it names.
struct ControlKind {
  const char* keyword;
  const char* className;
  bool hasText;
  std::uint32_t defaultStyle;
  std::uint32_t baseStyle;
};

constexpr ControlKind kControlKinds[] = {
    {"LTEXT", "Static", true, 0x0000 | kWsGroup, 0x0000},
    {"RTEXT", "Static", true, 0x0002 | kWsGroup, 0x0002},
    {"CTEXT", "Static", true, 0x0001 | kWsGroup, 0x0001},
    {"GROUPBOX", "Button", true, 0x0007, 0x0007},
    {"PUSHBUTTON", "Button", true, 0x0000 | kWsTabStop, 0x0000 | kWsTabStop},
    {"DEFPUSHBUTTON", "Button", true, 0x0001 | kWsTabStop, 0x0001 | kWsTabStop},
    {"CHECKBOX", "Button", true, 0x0002 | kWsTabStop, 0x0002 | kWsTabStop},
    {"AUTOCHECKBOX", "Button", true, 0x0003 | kWsTabStop, 0x0003},
    {"EDITTEXT", "Edit", false, kWsBorder | kWsTabStop, kWsBorder | kWsTabStop},
    {"LISTBOX", "ListBox", false, 0x0001 | kWsBorder, 0x0001 | kWsBorder},
    {"COMBOBOX", "ComboBox", false, 0x0001 | kWsTabStop, 0x0000},
};

// The text of a control: a string, or a resource number (an SS_BITMAP
// static names its bitmap so) kept in decimal.
std::string ControlText(CScriptReader& reader, const std::string& what) {
  const Token& t = reader.Peek();
  if (t.kind == Token::kNumber) return std::to_string(reader.Integer(what, 0, 0xFFFF));
  return reader.Text(what);
}

void Position(CScriptReader& reader, DialogItem& item, const std::string& what) {
  item.x = reader.Integer(what, -32768, 32767);
  reader.Expect(",", what);
  item.y = reader.Integer(what, -32768, 32767);
  reader.Expect(",", what);
  item.cx = reader.Integer(what, -32768, 32767);
  reader.Expect(",", what);
  item.cy = reader.Integer(what, -32768, 32767);
}

DialogItem ControlStatement(CScriptReader& reader, const Token& keyword) {
  const std::string& what = keyword.text;
  DialogItem item;
  if (keyword.text == "CONTROL") {
    item.text = ControlText(reader, what);
    reader.Expect(",", what);
    item.id = reader.ControlId(what);
    reader.Expect(",", what);
    const Token cls = reader.Next();
    if (cls.kind == Token::kString) {
      item.className = cls.text;
      for (const RcClassName& known : kRcClassNames) {
        if (Upper(cls.text) == known.name) item.className = known.className;
      }
    } else if (cls.kind == Token::kWord) {
      for (const RcClassName& known : kRcClassNames) {
        if (Upper(cls.text) == known.name) item.className = known.className;
      }
      if (item.className.empty()) throw ScriptError{cls.line, "unknown name '" + cls.text + "'"};
    } else {
      throw reader.Unexpected(cls, what, "a window class");
    }
    reader.Expect(",", what);
    item.style = reader.Style(kWsChild | kWsVisible, what);
    reader.Expect(",", what);
    Position(reader, item, what);
    if (reader.Accept(",")) item.exStyle = reader.Style(0, what);
    return item;
  }
  const ControlKind* kind = nullptr;
  for (const ControlKind& k : kControlKinds) {
    if (keyword.text == k.keyword) kind = &k;
  }
  if (kind == nullptr) throw ScriptError{keyword.line, "unknown control statement '" + keyword.text + "'"};
  item.className = kind->className;
  if (kind->hasText) {
    item.text = ControlText(reader, what);
    reader.Expect(",", what);
  }
  item.id = reader.ControlId(what);
  reader.Expect(",", what);
  Position(reader, item, what);
  item.style = kind->defaultStyle | kWsChild | kWsVisible;
  if (reader.Accept(",")) {
    item.style = reader.Style(kind->baseStyle | kWsChild | kWsVisible, what);
    if (reader.Accept(",")) item.exStyle = reader.Style(0, what);
  }
  return item;
}

// id DIALOG|DIALOGEX [memory options] x, y, cx, cy [, help id], then the
// options and the BEGIN/END block of controls.
Dialog DialogStatement(CScriptReader& reader, unsigned id, const Token& keyword) {
  const std::string what = keyword.text;
  Dialog dialog;
  dialog.id = id;
  while (IsMemoryOption(reader.Peek())) reader.Next();
  DialogItem frame;
  Position(reader, frame, what);
  dialog.x = frame.x;
  dialog.y = frame.y;
  dialog.cx = frame.cx;
  dialog.cy = frame.cy;
  if (what == "DIALOGEX" && reader.Accept(",")) reader.Integer(what, 0, 0xFFFFFFFFll);

  // Without STYLE a dialog is a popup with a border and system menu; STYLE
  // replaces that, while CAPTION and FONT add their bits either way.
  std::uint32_t added = 0;
  std::optional<std::uint32_t> style;
  for (;;) {
    const Token t = reader.Next();
    if (IsBegin(t)) break;
    if (t.kind != Token::kWord) throw reader.Unexpected(t, what, "BEGIN");
    if (t.text == "STYLE") {
      style = reader.Style(0, "STYLE");
    } else if (t.text == "EXSTYLE") {
      dialog.exStyle = reader.Style(0, "EXSTYLE");
    } else if (t.text == "CAPTION") {
      dialog.caption = reader.Text("CAPTION");
      added |= kWsCaption;
    } else if (t.text == "FONT") {
      dialog.fontSize = static_cast<unsigned>(reader.Integer("FONT", 0, 0xFFFF));
      reader.Expect(",", "FONT");
      dialog.fontName = reader.Text("FONT");
      // Weight, italic and character set: the stand-in draws one font.
      for (int extra = 0; extra < 3 && reader.Accept(","); ++extra) reader.Integer("FONT", 0, 0xFFFF);
      added |= kDsSetFont;
    } else if (t.text == "LANGUAGE") {
      reader.Integer("LANGUAGE", 0, 0xFFFF);
      reader.Expect(",", "LANGUAGE");
      reader.Integer("LANGUAGE", 0, 0xFFFF);
    } else {
      throw ScriptError{t.line, what + " option '" + t.text + "' is not supported"};
    }
  }
  dialog.style = (style ? *style : kWsPopup | kWsBorder | kWsSysMenu) | added;
  if ((dialog.style & kDsSetFont) == 0) dialog.fontName.clear();

  for (;;) {
    const Token t = reader.Next();
    if (IsEnd(t)) break;
    if (t.kind == Token::kEnd) throw ScriptError{keyword.line, what + " without END"};
    if (t.kind != Token::kWord) throw reader.Unexpected(t, what, "a control statement");
    dialog.items.push_back(ControlStatement(reader, t));
  }
  return dialog;
}

std::uint32_t Le32(const std::vector<std::uint8_t>& b, std::size_t at) {
  return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

// Why `file` is not a bitmap the platform can load, or empty.
std::string BitmapFault(const std::vector<std::uint8_t>& file) {
  constexpr std::size_t kFileHeader = 14;
  constexpr std::size_t kInfoHeader = 40;
  if (file.size() < kFileHeader + kInfoHeader || file[0] != 'B' || file[1] != 'M') return "no BMP header";
  const std::uint32_t pixelsAt = Le32(file, 10);
  const std::uint32_t headerSize = Le32(file, 14);
  if (headerSize < kInfoHeader || headerSize > file.size() - kFileHeader) return "no BITMAPINFOHEADER";
  const auto width = static_cast<std::int32_t>(Le32(file, 18));
  const auto height = static_cast<std::int32_t>(Le32(file, 22));
  const unsigned planes = file[26] | file[27] << 8;
  const unsigned bits = file[28] | file[29] << 8;
  const std::uint32_t compression = Le32(file, 30);
  std::uint32_t colours = Le32(file, 46);
  if (width <= 0 || height == 0 || height == INT32_MIN || width > 0x8000 || height > 0x8000 || height < -0x8000) {
    return "a size of " + std::to_string(width) + " x " + std::to_string(height);
  }
  if (planes != 1 || (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)) {
    return std::to_string(bits) + " bits a pixel";
  }
  if (compression != 0) return "compressed pixels";
  if (colours == 0 && bits <= 8) colours = 1u << bits;
  if (colours > 256) return "a colour table of " + std::to_string(colours);
  const std::uint64_t table = kFileHeader + static_cast<std::uint64_t>(headerSize) + colours * 4ull;
  const std::uint64_t stride = (static_cast<std::uint64_t>(width) * bits + 31) / 32 * 4;
  const std::uint64_t rows = height < 0 ? static_cast<std::uint64_t>(-static_cast<std::int64_t>(height))
                                        : static_cast<std::uint64_t>(height);
  if (pixelsAt < table || pixelsAt + stride * rows > file.size()) return "pixels beyond the end of the file";
  return "";
}

// id BITMAP [memory options] "file.bmp": the file's bytes after its file
// header, found beside the script.
std::vector<std::uint8_t> BitmapStatement(CScriptReader& reader, const std::string& folder) {
  constexpr std::size_t kMaxBitmap = 16u << 20;
  while (IsMemoryOption(reader.Peek())) reader.Next();
  const Token name = reader.Next();
  if (name.kind != Token::kString) throw reader.Unexpected(name, "BITMAP", "a file name in quotes");
  const std::string path = !name.text.empty() && name.text[0] == '/' ? name.text : folder + name.text;
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ScriptError{name.line, "cannot read '" + name.text + "'"};
  std::vector<std::uint8_t> file;
  char chunk[65536];
  while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
    file.insert(file.end(), chunk, chunk + in.gcount());
    if (file.size() > kMaxBitmap) throw ScriptError{name.line, "'" + name.text + "' is larger than 16 MB"};
  }
  const std::string fault = BitmapFault(file);
  if (!fault.empty()) throw ScriptError{name.line, "'" + name.text + "' is not a BMP file: " + fault};
  return {file.begin() + 14, file.end()};
}

void StringTable(CScriptReader& reader, Resources& resources, const Token& keyword) {
  // Options such as LANGUAGE or DISCARDABLE come before the block.
  Token open = reader.Next();
  while (open.kind != Token::kEnd && !IsBegin(open)) open = reader.Next();
  if (open.kind == Token::kEnd) throw ScriptError{keyword.line, "STRINGTABLE without BEGIN"};
  for (Token id = reader.Next(); !IsEnd(id); id = reader.Next()) {
    if (id.kind == Token::kEnd) throw ScriptError{keyword.line, "STRINGTABLE without END"};
    const std::optional<unsigned long> number = id.kind == Token::kNumber ? Number(id.text, 0xFFFF) : std::nullopt;
    if (!number) throw ScriptError{id.line, "a string id must be a number of 16 bits, not '" + id.text + "'"};
    reader.Accept(",");
    const Token& text = reader.Peek();
    if (text.kind != Token::kString) throw ScriptError{text.line, "string " + id.text + " has no text"};
    if (!resources.strings.emplace(*number, reader.Next().text).second) {
      throw ScriptError{id.line, "string " + id.text + " twice"};
    }
  }
}

Resources ReadScript(const std::string& source, const std::string& folder) {
  CScriptReader reader(source);
  Resources resources;
  int depth = 0;  // inside another resource's BEGIN/END
  for (Token t = reader.Next(); t.kind != Token::kEnd; t = reader.Next()) {
    if (IsBegin(t)) {
      ++depth;
      continue;
    }
    if (IsEnd(t)) {
      if (--depth < 0) throw ScriptError{t.line, "END without BEGIN"};
      continue;
    }
    if (depth != 0) continue;
    if (t.kind == Token::kWord && t.text == "STRINGTABLE") {
      StringTable(reader, resources, t);
      continue;
    }
    if (t.kind != Token::kNumber) continue;
    const Token& type = reader.Peek();
    if (type.kind != Token::kWord || (type.text != "DIALOG" && type.text != "DIALOGEX" && type.text != "BITMAP")) {
      continue;
    }
    const std::optional<unsigned long> id = Number(t.text, 0xFFFF);
    if (!id) throw ScriptError{t.line, "a resource id must be a number of 16 bits, not '" + t.text + "'"};
    const Token keyword = reader.Next();
    if (keyword.text == "BITMAP") {
      if (!resources.bitmaps.emplace(*id, BitmapStatement(reader, folder)).second) {
        throw ScriptError{t.line, "bitmap " + t.text + " twice"};
      }
    } else if (!resources.dialogs.emplace(*id, DialogStatement(reader, static_cast<unsigned>(*id), keyword)).second) {
      throw ScriptError{t.line, "dialog " + t.text + " twice"};
    }
  }
  if (depth != 0) throw ScriptError{0, "BEGIN without END"};
  return resources;
}

std::string CQuote(const std::string& text) {
  std::string out = "\"";
  for (const unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\%03o", c);
      out += escape;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

std::string Hex(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08Xu", static_cast<unsigned>(value));
  return text;
}

std::string Generate(const Resources& resources, const std::string& script) {
  std::ostringstream out;
  out << "// Made by rc_compile from " << script << "; edit the script, not this.\n"
      << "#include \"platform/win32/resources.h\"\n\nnamespace {\n"
      << "const PlatformStringResource kStrings[] = {\n";
  for (const auto& [id, text] : resources.strings) out << "    {" << id << ", " << CQuote(text) << "},\n";
  if (resources.strings.empty()) out << "    {0, nullptr},\n";
  out << "};\n";

  for (const auto& [id, dialog] : resources.dialogs) {
    if (dialog.items.empty()) continue;
    out << "const PlatformDialogItem kDialog" << id << "Items[] = {\n";
    for (const DialogItem& item : dialog.items) {
      out << "    {" << CQuote(item.className) << ", " << CQuote(item.text) << ", " << item.id << ", "
          << Hex(item.style) << ", " << Hex(item.exStyle) << ", " << item.x << ", " << item.y << ", " << item.cx
          << ", " << item.cy << "},\n";
    }
    out << "};\n";
  }
  if (!resources.dialogs.empty()) {
    out << "const PlatformDialogResource kDialogs[] = {\n";
    for (const auto& [id, d] : resources.dialogs) {
      out << "    {" << id << ", " << Hex(d.style) << ", " << Hex(d.exStyle) << ", " << d.x << ", " << d.y << ", "
          << d.cx << ", " << d.cy << ", " << CQuote(d.caption) << ", " << CQuote(d.fontName) << ", " << d.fontSize
          << ", ";
      if (d.items.empty()) {
        out << "nullptr, 0},\n";
      } else {
        out << "kDialog" << id << "Items, " << d.items.size() << "},\n";
      }
    }
    out << "};\n";
  }

  for (const auto& [id, bytes] : resources.bitmaps) {
    out << "const BYTE kBitmap" << id << "[] = {";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      out << (i % 16 == 0 ? "\n    " : " ") << static_cast<unsigned>(bytes[i]) << ",";
    }
    out << "\n};\n";
  }
  if (!resources.bitmaps.empty()) {
    out << "const PlatformBitmapResource kBitmaps[] = {\n";
    for (const auto& [id, bytes] : resources.bitmaps) {
      out << "    {" << id << ", kBitmap" << id << ", " << bytes.size() << "},\n";
    }
    out << "};\n";
  }

  out << "}  // namespace\n\n"
      << "extern \"C\" __attribute__((visibility(\"default\"))) const PlatformModuleResources PlatformResources = {\n"
      << "    kStrings, " << resources.strings.size() << ", "
      << (resources.dialogs.empty() ? "nullptr" : "kDialogs") << ", " << resources.dialogs.size() << ", "
      << (resources.bitmaps.empty() ? "nullptr" : "kBitmaps") << ", " << resources.bitmaps.size() << "};\n";
  return out.str();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: rc_compile SCRIPT.rc OUT.cpp\n";
    return 2;
  }
  const std::string script = argv[1];
  std::ifstream in(script, std::ios::binary);
  if (!in) {
    std::cerr << script << ": cannot be read\n";
    return 1;
  }
  std::ostringstream source;
  source << in.rdbuf();
  const std::size_t slash = script.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "" : script.substr(0, slash + 1);

  std::string generated;
  try {
    generated = Generate(ReadScript(source.str(), folder), script);
  } catch (const ScriptError& error) {
    std::cerr << script << ":" << error.line << ": " << error.why << "\n";
    return 1;
  }
  std::ofstream file(argv[2], std::ios::binary | std::ios::trunc);
  file << generated;
  if (!file.flush()) {
    std::cerr << argv[2] << ": cannot be written\n";
    return 1;
  }
  return 0;
}
