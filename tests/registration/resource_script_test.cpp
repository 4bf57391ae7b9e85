// The resource compiler that turns the module's resource script into its
// tables (what it takes, and one clear line for what it cannot), and the
// dialog templates and banner as the module exports them.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/objbase.h"
#include "platform/win32/files.h"
#include "platform/win32/resources.h"
#include "platform/window/commctrl.h"
#include "platform/window/winuser.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

struct Compiled {
  int status;
  std::string messages;
  std::string source;
};

// Compiles `script` with `files` (name, bytes) beside it.
Compiled Compile(const std::string& script, const std::vector<std::pair<std::string, std::string>>& files = {}) {
  tsw::TempDir dir;
  std::ofstream(dir.File("m.rc"), std::ios::binary) << script;
  for (const auto& [name, bytes] : files) std::ofstream(dir.File(name), std::ios::binary) << bytes;
  const tsw::CommandResult run = tsw::Shell(std::string(BRINDLET_RC_COMPILE) + " " + dir.File("m.rc").string() +
                                            " " + dir.File("m.cpp").string() + " 2>&1");
  std::ifstream in(dir.File("m.cpp"), std::ios::binary);
  std::ostringstream source;
  source << in.rdbuf();
  return {run.status, run.out, source.str()};
}

// A .bmp file of `width` x `height` at 8 bits, `cut` bytes short.
std::string Bmp(int width, int height, std::size_t cut = 0) {
  const std::size_t stride = (static_cast<std::size_t>(width) + 3) / 4 * 4;
  const std::size_t offset = 14 + 40 + 256 * 4;
  std::string file(offset + stride * static_cast<std::size_t>(height), '\0');
  const auto put = [&file](std::size_t at, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) file[at + i] = static_cast<char>(value >> (8 * i));
  };
  file[0] = 'B';
  file[1] = 'M';
  put(2, static_cast<std::uint32_t>(file.size()), 4);
  put(10, static_cast<std::uint32_t>(offset), 4);
  put(14, 40, 4);
  put(18, static_cast<std::uint32_t>(width), 4);
  put(22, static_cast<std::uint32_t>(height), 4);
  put(26, 1, 2);
  put(28, 8, 2);
  file.resize(file.size() - cut);
  return file;
}

TEST(ResourceCompiler, TakesStringTablesAndPassesOverTheRest) {
  const Compiled c = Compile(
      "#include <winver.h>\n"
      "// a comment with \"quotes\"\n"
      "1 VERSIONINFO\n FILEVERSION 1,2,3,4\nBEGIN\n BLOCK \"StringFileInfo\"\n BEGIN\n  VALUE \"A\", \"B\"\n END\nEND\n"
      "/* STRINGTABLE BEGIN 1 \"hidden in a comment\" END */\n"
      "STRINGTABLE DISCARDABLE\n{\n  0x6A, \"Say \"\"hi\"\"\\tnow\"\n  101 \"back\\\\slash\"\n}\n");
  ASSERT_EQ(c.status, 0) << c.messages;
  EXPECT_NE(c.source.find("{101, \"back\\\\slash\"}"), std::string::npos) << c.source;
  EXPECT_NE(c.source.find("{106, \"Say \\\"hi\\\"\\011now\"}"), std::string::npos) << c.source;
  EXPECT_EQ(c.source.find("hidden in a comment"), std::string::npos);
  EXPECT_NE(c.source.find("kStrings, 2, nullptr, 0, nullptr, 0}"), std::string::npos) << c.source;
}

// Each control statement gets the class and styles the platform's compiler
// gives it: the default style alone, or the base style with what the
// statement adds and takes away.
TEST(ResourceCompiler, ControlStatementsGetTheirClassAndStyles) {
  const Compiled c = Compile(
      "#define IDC_STATIC (-1)\n"
      "7 DIALOGEX 2, 3, 100, 80, 0\n"
      "STYLE DS_SETFONT | (WS_CHILD | WS_VISIBLE) | NOT WS_VISIBLE\nEXSTYLE WS_EX_CONTROLPARENT\n"
      "CAPTION \"Title\"\nFONT 9, \"Shell\", 400, 0, 0x1\n"
      "BEGIN\n"
      "  LTEXT \"a\", IDC_STATIC, 1, 2, 3, 4\n"
      "  LTEXT \"b\", -1, 1, 2, 3, 4, SS_SUNKEN\n"
      "  CTEXT \"c\", 5, 1, 2, 3, 4, NOT WS_VISIBLE | SS_NOTIFY, WS_EX_STATICEDGE\n"
      "  GROUPBOX \"g\", 6, 1, 2, 3, 4\n"
      "  DEFPUSHBUTTON \"OK\", 1, 1, 2, 3, 4\n"
      "  AUTOCHECKBOX \"x\", 8, 1, 2, 3, 4, WS_GROUP\n"
      "  EDITTEXT 9, 1, 2, 3, 4\n"
      "  LISTBOX 10, 1, 2, 3, 4, LBS_NOINTEGRALHEIGHT | 0x200000L\n"
      "  COMBOBOX 11, -1, 2, 3, 4, CBS_DROPDOWNLIST\n"
      "  CONTROL 103, -1, \"static\", SS_BITMAP | NOT WS_VISIBLE, 1, 2, 3, 4, WS_EX_CLIENTEDGE\n"
      "  CONTROL \"\", 12, \"SysListView32\", LVS_REPORT, 1, 2, 3, 4\n"
      "END\n"
      "8 DIALOG 0, 0, 10, 10\nBEGIN\nEND\n");
  ASSERT_EQ(c.status, 0) << c.messages;
  const char* expected[] = {
      "{7, 0x40C00040u, 0x00010000u, 2, 3, 100, 80, \"Title\", \"Shell\", 9, kDialog7Items, 11}",
      "{8, 0x80880000u, 0x00000000u, 0, 0, 10, 10, \"\", \"\", 0, nullptr, 0}",
      "{\"Static\", \"a\", 65535, 0x50020000u, 0x00000000u, 1, 2, 3, 4}",
      "{\"Static\", \"b\", 65535, 0x50001000u, 0x00000000u, 1, 2, 3, 4}",
      "{\"Static\", \"c\", 5, 0x40000101u, 0x00020000u, 1, 2, 3, 4}",
      "{\"Button\", \"g\", 6, 0x50000007u, 0x00000000u, 1, 2, 3, 4}",
      "{\"Button\", \"OK\", 1, 0x50010001u, 0x00000000u, 1, 2, 3, 4}",
      "{\"Button\", \"x\", 8, 0x50020003u, 0x00000000u, 1, 2, 3, 4}",
      "{\"Edit\", \"\", 9, 0x50810000u, 0x00000000u, 1, 2, 3, 4}",
      "{\"ListBox\", \"\", 10, 0x50A00101u, 0x00000000u, 1, 2, 3, 4}",
      "{\"ComboBox\", \"\", 11, 0x50000003u, 0x00000000u, -1, 2, 3, 4}",
      "{\"Static\", \"103\", 65535, 0x4000000Eu, 0x00000200u, 1, 2, 3, 4}",
      "{\"SysListView32\", \"\", 12, 0x50000001u, 0x00000000u, 1, 2, 3, 4}",
  };
  for (const char* line : expected) EXPECT_NE(c.source.find(line), std::string::npos) << line << "\n" << c.source;
}

TEST(ResourceCompiler, ABitmapIsEmbeddedWithoutItsFileHeader) {
  const std::string bmp = Bmp(3, 2);
  const Compiled c = Compile("5 BITMAP DISCARDABLE \"b.bmp\"\n", {{"b.bmp", bmp}});
  ASSERT_EQ(c.status, 0) << c.messages;
  EXPECT_NE(c.source.find("{5, kBitmap5, " + std::to_string(bmp.size() - 14) + "}"), std::string::npos) << c.source;
  EXPECT_NE(c.source.find("kBitmap5[] = {\n    40, 0, 0, 0, 3, 0,"), std::string::npos);
}

TEST(ResourceCompiler, ABrokenScriptGetsItsLineAndNoOutput) {
  const std::string dialog = "1 DIALOGEX 0, 0, 50, 50\nBEGIN\n";
  const struct {
    std::string script;
    const char* message;
  } cases[] = {
      {"STRINGTABLE\nBEGIN\n  name \"x\"\nEND\n", "m.rc:3: a string id must be a number of 16 bits, not 'name'"},
      {"STRINGTABLE\nBEGIN\n  70000 \"x\"\nEND\n", "m.rc:3: a string id must be a number of 16 bits, not '70000'"},
      {"STRINGTABLE\nBEGIN\n  1 \"x\"\n  1 \"y\"\nEND\n", "m.rc:4: string 1 twice"},
      {"STRINGTABLE\nBEGIN\n  1 \"open\nEND\n", "m.rc:3: unterminated string"},
      {"STRINGTABLE\nBEGIN\n  1 \"x\"\n", "m.rc:1: STRINGTABLE without END"},
      {"STRINGTABLE\nBEGIN\n  1\nEND\n", "m.rc:4: string 1 has no text"},
      {"END\n", "m.rc:1: END without BEGIN"},
      {"1 DIALOG 0, 0, 5, 5\nSTYLE WS_CHILD | WS_BOGUS\nBEGIN\nEND\n", "m.rc:2: unknown name 'WS_BOGUS'"},
      {dialog + "  LTEXT \"a\", 1, 2, 3, 4, 5, SS_SUNKEN | SS_FANCY\nEND\n", "m.rc:3: unknown name 'SS_FANCY'"},
      {dialog + "  CONTROL \"\", 1, WC_UNKNOWN, 0, 1, 2, 3, 4\nEND\n", "m.rc:3: unknown name 'WC_UNKNOWN'"},
      {dialog + "  LTEXT \"a\", 1, 2, 3\nEND\n", "m.rc:4: LTEXT cut short: ',' expected"},
      {dialog + "  EDITTEXT 1, 2, 3, 4, 5,\nEND\n", "m.rc:4: EDITTEXT cut short: a style expected"},
      {dialog + "  LISTBOX 1, 2, x, 4, 5\nEND\n", "m.rc:3: LISTBOX: a number expected, not 'x'"},
      {dialog + "  SLIDER 1, 2, 3, 4, 5\nEND\n", "m.rc:3: unknown control statement 'SLIDER'"},
      {dialog + "  LTEXT \"a\", 1, 2, 3, 4, 5\n", "m.rc:1: DIALOGEX without END"},
      {"1 DIALOG 0, 0, 5, 5\nMENU 3\nBEGIN\nEND\n", "m.rc:2: DIALOG option 'MENU' is not supported"},
      {"1 DIALOG 0, 0, 5, 5\nBEGIN\nEND\n1 DIALOG 0, 0, 5, 5\nBEGIN\nEND\n", "m.rc:4: dialog 1 twice"},
      {"9 BITMAP \"none.bmp\"\n", "m.rc:1: cannot read 'none.bmp'"},
      {"9 BITMAP \"b.txt\"\n", "m.rc:1: 'b.txt' is not a BMP file: no BMP header"},
      {"9 BITMAP \"cut.bmp\"\n", "m.rc:1: 'cut.bmp' is not a BMP file: pixels beyond the end of the file"},
      {"9 BITMAP \"flat.bmp\"\n", "m.rc:1: 'flat.bmp' is not a BMP file: a size of 4 x 0"},
      {"9 BITMAP banner\n", "m.rc:1: BITMAP: a file name in quotes expected, not 'banner'"},
  };
  const std::vector<std::pair<std::string, std::string>> files = {
      {"b.txt", std::string(100, 'x')}, {"cut.bmp", Bmp(4, 4, 1)}, {"flat.bmp", Bmp(4, 0)}};
  for (const auto& c : cases) {
    const Compiled compiled = Compile(c.script, files);
    EXPECT_EQ(compiled.status, 1) << c.script;
    EXPECT_NE(compiled.messages.find(c.message), std::string::npos) << c.script << "\n" << compiled.messages;
    EXPECT_TRUE(compiled.source.empty()) << c.script;
  }
}

// ---- The module's templates -------------------------------------------------

class ModuleResourcesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_Module = LoadLibraryA(BRINDLET_MODULE_PATH);
    ASSERT_NE(m_Module, nullptr) << PlatformLastLoadError();
  }

  const PlatformDialogResource& Dialog(UINT id) const {
    const PlatformDialogResource* dialog = PlatformFindDialog(m_Module, MAKEINTRESOURCEA(id));
    if (dialog == nullptr) throw std::runtime_error("no dialog " + std::to_string(id));
    return *dialog;
  }

  static const PlatformDialogItem* Item(const PlatformDialogResource& dialog, int id) {
    for (UINT i = 0; i < dialog.itemCount; ++i) {
      if (dialog.items[i].id == id) return &dialog.items[i];
    }
    return nullptr;
  }

  HMODULE m_Module = nullptr;
};

bool IsGroupBox(const PlatformDialogItem& item) {
  return std::strcmp(item.className, "Button") == 0 && (item.style & BS_TYPEMASK) == BS_GROUPBOX;
}

bool Inside(const PlatformDialogItem& inner, const PlatformDialogItem& outer) {
  return inner.x >= outer.x && inner.y >= outer.y && inner.x + inner.cx <= outer.x + outer.cx &&
         inner.y + inner.cy <= outer.y + outer.cy;
}

bool Overlap(const PlatformDialogItem& a, const PlatformDialogItem& b) {
  return a.x < b.x + b.cx && b.x < a.x + a.cx && a.y < b.y + b.cy && b.y < a.y + a.cy;
}

TEST_F(ModuleResourcesTest, PagesAreFixedFontChildDialogsWhoseVisibleControlsFitAndDoNotOverlap) {
  const struct {
    UINT id;
    short cx;
    short cy;
  } pages[] = {{105, 236, 230}, {106, 236, 158}, {107, 236, 218}, {108, 236, 230}};
  for (const auto& page : pages) {
    SCOPED_TRACE(page.id);
    const PlatformDialogResource& d = Dialog(page.id);
    EXPECT_EQ(d.cx, page.cx);
    EXPECT_EQ(d.cy, page.cy);
    EXPECT_EQ(d.style, DS_SETFONT | DS_FIXEDSYS | DS_CONTROL | WS_CHILD);
    EXPECT_STREQ(d.caption, "");
    EXPECT_STREQ(d.fontName, "MS Shell Dlg");
    EXPECT_EQ(d.fontSize, 8);
    for (UINT i = 0; i < d.itemCount; ++i) {
      const PlatformDialogItem& a = d.items[i];
      EXPECT_TRUE(a.x >= 0 && a.y >= 0 && a.cx > 0 && a.cy > 0 && a.x + a.cx <= d.cx && a.y + a.cy <= d.cy)
          << a.id << " \"" << a.text << "\" lies outside the dialog";
      EXPECT_TRUE(a.style & WS_CHILD) << a.id;
      for (UINT j = i + 1; j < d.itemCount && (a.style & WS_VISIBLE); ++j) {
        const PlatformDialogItem& b = d.items[j];
        if (!(b.style & WS_VISIBLE) || !Overlap(a, b)) continue;
        EXPECT_TRUE((IsGroupBox(a) && Inside(b, a)) || (IsGroupBox(b) && Inside(a, b)))
            << a.id << " \"" << a.text << "\" overlaps " << b.id << " \"" << b.text << "\"";
      }
    }
  }
}

TEST_F(ModuleResourcesTest, ProgramInfoHoldsItsSettingsWithTheFourHiddenOnes) {
  const PlatformDialogResource& d = Dialog(105);
  const struct {
    WORD id;
    const char* text;
    bool visible;
  } boxes[] = {{1011, "Prefer AC3 Audio Track", true},        {1027, "Prefer 2nd Language Audio Track", true},
               {1014, "Allow Graphedit to attach to graph ", true}, {1019, "Use PCR Clock (use with reclock)", true},
               {1025, "Fast Seeking", true},                  {1013, "Auto-Select Media Type", false},
               {1020, "Determine Media Length", false},       {1024, "Ignore Bad CRC On PMT", false}};
  for (const auto& box : boxes) {
    const PlatformDialogItem* item = Item(d, box.id);
    ASSERT_NE(item, nullptr) << box.id;
    EXPECT_STREQ(item->className, "Button");
    EXPECT_STREQ(item->text, box.text);
    EXPECT_EQ(item->style & BS_TYPEMASK, BS_AUTOCHECKBOX) << box.id;
    EXPECT_EQ((item->style & WS_VISIBLE) != 0, box.visible) << box.id;
  }
  const PlatformDialogItem* demux = Item(d, 1023);
  ASSERT_NE(demux, nullptr);
  EXPECT_STREQ(demux->className, "ComboBox");
  EXPECT_EQ(demux->style & (CBS_DROPDOWNLIST | WS_VISIBLE), CBS_DROPDOWNLIST);

  const PlatformDialogItem* pts = Item(d, 1022);
  ASSERT_NE(pts, nullptr);
  EXPECT_STREQ(pts->text, "00:00:00.000");
  for (const int id : {1001, 1002, 1003, 1004, 1005, 1006, 1008, 1009, 1016, 1017, 1018, 1022}) {
    const PlatformDialogItem* value = Item(d, id);
    ASSERT_NE(value, nullptr) << id;
    EXPECT_TRUE(std::strcmp(value->className, "Static") == 0 && (value->style & SS_SUNKEN)) << id;
  }
  for (const int id : {1007, 1015}) {
    const PlatformDialogItem* list = Item(d, id);
    ASSERT_NE(list, nullptr) << id;
    EXPECT_STREQ(list->className, "ListBox");
    EXPECT_EQ(list->style & (LBS_NOTIFY | WS_VISIBLE), LBS_NOTIFY | WS_VISIBLE) << id;
  }
  const PlatformDialogItem* extensions = Item(d, 1012);
  ASSERT_NE(extensions, nullptr);
  EXPECT_STREQ(extensions->className, "Edit");
  EXPECT_EQ(extensions->style & (ES_LOWERCASE | ES_AUTOHSCROLL), ES_LOWERCASE | ES_AUTOHSCROLL);
}

TEST_F(ModuleResourcesTest, TheListPagesAndAboutHaveTheirControlsWhereThePagesExpectThem) {
  const PlatformDialogResource& lists = Dialog(108);
  ASSERT_EQ(lists.itemCount, 2u);
  const PlatformDialogItem* list = Item(lists, 1021);
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list->className, WC_LISTVIEWA);
  EXPECT_EQ(list->style & (LVS_REPORT | LVS_SINGLESEL | LVS_SHOWSELALWAYS),
            LVS_REPORT | LVS_SINGLESEL | LVS_SHOWSELALWAYS);
  EXPECT_EQ((std::vector<short>{list->x, list->y, list->cx, list->cy}), (std::vector<short>{6, 6, 222, 204}));
  const PlatformDialogItem* help = Item(lists, 1026);
  ASSERT_NE(help, nullptr);
  EXPECT_STREQ(help->className, "Static");
  EXPECT_STREQ(help->text, "Help");
  EXPECT_EQ((std::vector<short>{help->x, help->y, help->cx, help->cy}), (std::vector<short>{214, 216, 15, 8}));

  const PlatformDialogResource& pids = Dialog(107);
  ASSERT_NE(Item(pids, 1021), nullptr);
  EXPECT_EQ(Item(pids, 1021)->style & (LVS_REPORT | LVS_SINGLESEL), LVS_REPORT | LVS_SINGLESEL);
  for (const int id : {1022, 1023, 1024, 1025, 1027, 1028, 1029, 1030}) {
    ASSERT_NE(Item(pids, id), nullptr) << id;
    EXPECT_TRUE(Item(pids, id)->style & SS_SUNKEN) << id;
  }
  ASSERT_NE(Item(pids, 1026), nullptr);
  EXPECT_STREQ(Item(pids, 1026)->text, "Help");

  const PlatformDialogResource& about = Dialog(106);
  ASSERT_EQ(about.itemCount, 3u);
  const PlatformDialogItem& banner = about.items[0];
  EXPECT_EQ(banner.style & SS_TYPEMASK, SS_BITMAP);
  EXPECT_STREQ(banner.text, "103");
  EXPECT_EQ((std::vector<short>{banner.x, banner.y, banner.cx, banner.cy}), (std::vector<short>{12, 12, 221, 38}));
  const PlatformDialogItem& text = about.items[1];
  EXPECT_EQ(text.style & SS_TYPEMASK, SS_CENTER);
  EXPECT_EQ(std::string(text.text).rfind("Caldrovia Brindlet Filter\nVersion 1.2.0\n", 0), 0u) << text.text;
  const PlatformDialogItem* link = Item(about, 1026);
  ASSERT_NE(link, nullptr);
  EXPECT_EQ(std::string(link->text).rfind("https://caldrovia.example", 0), 0u) << link->text;
  EXPECT_EQ((std::vector<short>{link->x, link->y, link->cx, link->cy}), (std::vector<short>{84, 96, 82, 8}));
}

TEST_F(ModuleResourcesTest, TheBannerIs330By59At8BitsAndOnlyNumberedTemplatesAreFound) {
  const PlatformBitmapResource* banner = PlatformFindBitmap(m_Module, 103);
  ASSERT_NE(banner, nullptr);
  ASSERT_GE(banner->size, 40u);
  const auto le = [banner](UINT at, int bytes) {
    UINT value = 0;
    for (int i = bytes - 1; i >= 0; --i) value = value << 8 | banner->bits[at + static_cast<UINT>(i)];
    return value;
  };
  EXPECT_EQ(le(0, 4), 40u);    // BITMAPINFOHEADER
  EXPECT_EQ(le(4, 4), 330u);   // width
  EXPECT_EQ(le(8, 4), 59u);    // height, bottom-up
  EXPECT_EQ(le(14, 2), 8u);    // bits a pixel
  EXPECT_EQ(le(16, 4), 0u);    // BI_RGB
  EXPECT_EQ(banner->size, 40u + 256u * 4u + 332u * 59u);

  EXPECT_EQ(PlatformFindBitmap(m_Module, 104), nullptr);
  EXPECT_EQ(PlatformFindDialog(m_Module, MAKEINTRESOURCEA(109)), nullptr);
  EXPECT_EQ(PlatformFindDialog(m_Module, "105"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

}  // namespace
