// Tests of the pages that show what the filter found, driven through the
// window layer and checked by what their controls show: the filter made
// through the module for real files and for no file, the fake for the cases
// a file can't easily be made to give. The Program Info page's own tests are
// in program_info_page_test.cpp.
#include "tests/pages/info_pages_fixture.h"

namespace {

using namespace info_pages_test;
using namespace pages;
using namespace std::chrono_literals;

// ---- Connecting ----

TEST_F(InfoPagesTest, EachPageRefusesANullObjectAndAnObjectWithoutTheInterface) {
  CPlainObject plain;
  for (const CLSID* clsid : kInfoPages) {
    CPageHarness page(*clsid);
    ASSERT_EQ(page.Created(), S_OK);
    IUnknown* none = nullptr;
    EXPECT_EQ(page.Page()->SetObjects(1, &none), E_POINTER);
    EXPECT_EQ(page.Connect(&plain), E_NOINTERFACE);
  }
}

TEST_F(InfoPagesTest, EachPageReadsTheFilterAfreshOnEveryOpeningAndKeepsItUntilItGoes) {
  const auto fill = [this](int rows) {
    m_Fake.texts = {{"NUMPIDS", std::to_string(rows)}, {"H264.NUMPARAMS", std::to_string(rows)}};
    m_Fake.programs.clear();
    for (int i = 0; i < rows; ++i) {
      m_Fake.texts["GETPID(" + std::to_string(i) + ")"] = "0x0011 (17)";
      m_Fake.texts["H264.GETPARAM(" + std::to_string(i) + ")"] = "profile_idc: 77";
      m_Fake.programs.push_back({static_cast<WORD>(i + 1), {{2, 0x100}}});
    }
  };
  const auto shownRows = [](const CLSID* clsid, HWND dialog) {
    return clsid == &CLSID_ProgramInfoPage ? ListItems(dialog, 1007).size() : ListViewRows(dialog, 1021).size();
  };
  for (const CLSID* clsid : kInfoPages) {
    fill(1);
    CPageHarness page(*clsid);
    ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    EXPECT_EQ(shownRows(clsid, page.Dialog()), 1u);
    ASSERT_EQ(page.Deactivate(), S_OK);
    fill(3);
    ASSERT_EQ(page.Activate(), S_OK);
    // Program Info reads its program count once per connection.
    EXPECT_EQ(shownRows(clsid, page.Dialog()), clsid == &CLSID_ProgramInfoPage ? 1u : 3u);
    ASSERT_EQ(page.Deactivate(), S_OK);
    ASSERT_EQ(page.Connect(nullptr), S_OK);
    EXPECT_GT(m_Fake.References(), 0u) << "let go on disconnecting";
  }
}

// ---- No file open ----

TEST_F(InfoPagesTest, NoFileOpen) {
  CModuleFilter filter;
  {
    CPageHarness page(CLSID_ProgramInfoPage);
    ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
    const HWND dialog = page.Dialog();
    EXPECT_EQ(ListItems(dialog, 1007), std::vector<std::string>{"No PMT found"});
    EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{1, 1000}}));
    EXPECT_EQ(ControlText(dialog, 1008), "");
    EXPECT_EQ(ControlText(dialog, 1009), "");
    EXPECT_EQ(ControlText(dialog, 1022), "00:00:00.000");
    EXPECT_EQ(ControlText(dialog, 1003), "");
    // The settings are shown all the same, with their defaults.
    EXPECT_EQ(ControlText(dialog, 1012), ".ts;.tp;");
    EXPECT_EQ(CheckState(dialog, 1011), BST_CHECKED);
    EXPECT_EQ(CheckState(dialog, 1027), BST_UNCHECKED);
    EXPECT_EQ(CheckState(dialog, 1025), BST_CHECKED);
    EXPECT_EQ(ListItems(dialog, 1023), (std::vector<std::string>{"Any Push Demux", "MPEG-2 Demultiplexer",
                                                                 "NVIDIA HDTV Demux", "(not yet implemented)"}));
    EXPECT_EQ(ListSelection(dialog, 1023), 1);
    // Timer 1 finds nothing and goes on.
    SendMessageA(dialog, WM_TIMER, 1, 0);
    EXPECT_EQ(Timers(dialog).size(), 1u);
  }
  {
    CPageHarness page(CLSID_PidInfoPage);
    ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
    const HWND dialog = page.Dialog();
    for (const int id : {1022, 1023, 1025}) EXPECT_EQ(ControlText(dialog, id), "0") << id;
    EXPECT_EQ(ControlText(dialog, 1024), "188");
    EXPECT_EQ(ControlText(dialog, 1027), "");
    EXPECT_TRUE(ListViewRows(dialog, 1021).empty());
  }
  for (const CLSID* clsid : {&CLSID_ProgramsPage, &CLSID_H264AnalyzerPage}) {
    CPageHarness page(*clsid);
    ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
    EXPECT_TRUE(ListViewRows(page.Dialog(), 1021).empty());
  }
}

TEST_F(InfoPagesTest, ListViewColumnsHaveTheirTitlesAndWidths) {
  struct Case {
    const CLSID* clsid;
    std::vector<std::pair<std::string, int>> columns;
  };
  const Case cases[] = {
      {&CLSID_PidInfoPage, {{"PID", 80}, {"Packets", 60}, {"Percent", 60}, {"Description", 160}}},
      {&CLSID_H264AnalyzerPage, {{"H.264 Parameter", 205}, {"Value", 50}, {"Remark", 70}}},
      {&CLSID_ProgramsPage, {{"Program", 170}, {"SID", 80}, {"Streams", 55}}},
  };
  for (const Case& c : cases) {
    CPageHarness page(*c.clsid);
    ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    std::vector<std::pair<std::string, int>> columns;
    for (const PlatformListColumn& column : ListViewColumns(page.Dialog(), 1021)) {
      columns.emplace_back(column.title, column.width);
    }
    EXPECT_EQ(columns, c.columns);
  }
}

// ---- PID Info ----

TEST_F(InfoPagesTest, PidDescriptionsFollowTheirPrecedence) {
  struct Row {
    long pid;
    long kind;
    const char* description;
  };
  struct Case {
    long pmtPid;
    std::vector<Row> rows;
  };
  const Case cases[] = {
      {100,
       {{17, 0, "SDT"},
        {8191, 0, "NULL PID"},
        {16, 224, "ISO/IEC 13818-2 video"},
        {100, 192, "PMT"},
        {0, 0, "PAT"},
        {1, 0, "CAT"},
        {5, 0, "reserved"},
        {15, 0, "reserved"},
        {18, 240, "ECM"},
        {19, 0, "RST"},
        {20, 0, "TDT/TOT"},
        {21, 0, "private"},
        {8176, 0, "EIT-0"},
        {8179, 224, "EIT-3"},
        {8180, 0, "private"},
        {8186, 192, "ISO/IEC 13818-3 audio"},
        {8187, 27, "MGT/TVCT"},
        {8188, 27, "ITU-T Rec. H.264"},
        {8190, 249, "private stream 1 - AC3"},
        {300, 223, "ISO/IEC 13818-3 audio"},
        {301, 0x1EF, "ISO/IEC 13818-2 video"},  // the low 8 bits
        {302, 189, "private stream 1"},
        {303, 248, "ITU-T Rec. H.222.1 type E"},
        {304, 250, "private"}}},
      {16, {{16, 0, "PMT"}, {17, 0, "SDT"}}},
      {0, {{0, 0, "PAT"}, {8191, 0, "NULL PID"}}},
      {8191, {{8191, 0, "NULL PID"}}},
  };
  for (const Case& c : cases) {
    m_Fake.texts = {{"NUMPIDS", std::to_string(c.rows.size())},
                    {"NUMPACKETS", std::to_string(c.rows.size())},
                    {"PMTPID", std::to_string(c.pmtPid)}};
    for (std::size_t i = 0; i < c.rows.size(); ++i) {
      const std::string index = "(" + std::to_string(i) + ")";
      m_Fake.texts["GETPID" + index] = Format("0x%04lx (%ld)", c.rows[i].pid);
      m_Fake.texts["GETPACKETS" + index] = "1";
      m_Fake.texts["GETTYPE" + index] = std::to_string(c.rows[i].kind);
    }
    CPageHarness page(CLSID_PidInfoPage);
    ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    const Rows rows = ListViewRows(page.Dialog(), 1021);
    ASSERT_EQ(rows.size(), c.rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(rows[i][3], c.rows[i].description) << "PID " << c.rows[i].pid << " kind " << c.rows[i].kind
                                                   << " with the PMT on " << c.pmtPid;
    }
  }
}

TEST_F(InfoPagesTest, PidInfoSummariesAndPercents) {
  m_Fake.texts = {{"NUMPIDS", "3"},           {"NUMPACKETS", "30000"},     {"PMTPID", "256"},
                  {"MEDIALEN", "00:01:02.500"}, {"MAXPACKET", "1000"},       {"GETPID(0)", "0x0100 (256)"},
                  {"GETPACKETS(0)", "20000"},  {"GETTYPE(0)", "0"},          {"GETPID(1)", "0x0101 (257)"},
                  {"GETPACKETS(1)", "9999"},   {"GETTYPE(1)", "224"},        {"GETPID(2)", "0x1fff (8191)"},
                  {"GETPACKETS(2)", "1"},      {"GETTYPE(2)", "0"}};
  CPageHarness page(CLSID_PidInfoPage);
  ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
  const HWND dialog = page.Dialog();
  EXPECT_EQ(ControlText(dialog, 1022), "3");
  EXPECT_EQ(ControlText(dialog, 1023), "30000");
  EXPECT_EQ(ControlText(dialog, 1025), "5640000");
  EXPECT_EQ(ControlText(dialog, 1027), "00:01:02.500");
  EXPECT_EQ(ControlText(dialog, 1028), "1000");
  EXPECT_EQ(ControlText(dialog, 1029), "188");
  EXPECT_EQ(ControlText(dialog, 1030), "183 KB");  // 188000 bytes, rounded down
  EXPECT_EQ(ListViewRows(dialog, 1021), (Rows{{"0x0100 (256)", "20000", "66.67", "PMT"},
                                              {"0x0101 (257)", "9999", "33.33", "ISO/IEC 13818-2 video"},
                                              {"0x1fff (8191)", "1", "0.00", "NULL PID"}}));

  // One PID that fills the whole short scan.
  m_Fake.texts = {{"NUMPIDS", "1"}, {"NUMPACKETS", "30000"}, {"GETPID(0)", "0x0044 (68)"},
                  {"GETPACKETS(0)", "30000"}};
  CPageHarness whole(CLSID_PidInfoPage);
  ASSERT_EQ(whole.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
  EXPECT_EQ(ListViewRows(whole.Dialog(), 1021), (Rows{{"0x0044 (68)", "30000", "100.00", "private"}}));
}

// ---- H.264 Analyzer ----

TEST_F(InfoPagesTest, H264RemarksAndTheHeightCorrection) {
  struct Case {
    std::vector<std::string> log;
    std::vector<std::string> remarks;
  };
  const Case cases[] = {
      {{"profile_idc: 100", "level_idc: 41", "seq_parameter_set_id: 0", "pic_width_in_mbs_minus1: 119",
        "pic_height_in_map_units_minus1: 33", "frame_mbs_only_flag: 0", "aspect_ratio_idc: 1"},
       {"High profile", "Level 4.1", "", "Width 1920", "Height 1088", "interlaced", "1:1 square"}},
      {{"profile_idc: 66", "level_idc: 30", "pic_height_in_map_units_minus1: 67", "frame_mbs_only_flag: 1",
        "aspect_ratio_idc: 0"},
       {"Baseline profile", "Level 3.0", "Height 1088", "progressive", ""}},
      {{"profile_idc: 77", "profile_idc: 88", "profile_idc: 44", "level_idc: 9", "aspect_ratio_idc: 255",
        "aspect_ratio_idc: 5", "aspect_ratio_idc: 8"},
       {"Main profile", "Extended profile", "High profile", "Level 9.", "extended SAR", "40:33", ""}},
      // value + 1 is cut to 16 bits before it is multiplied.
      {{"pic_width_in_mbs_minus1: 65535", "pic_height_in_map_units_minus1: 65535", "frame_mbs_only_flag: 1"},
       {"Width 0", "Height 0", "progressive"}},
      {{"pic_height_in_map_units_minus1: 17", "frame_mbs_only_flag: 2"}, {"Height 576", "interlaced"}},
  };
  for (const Case& c : cases) {
    m_Fake.texts = {{"H264.NUMPARAMS", std::to_string(c.log.size())}};
    for (std::size_t i = 0; i < c.log.size(); ++i) {
      m_Fake.texts["H264.GETPARAM(" + std::to_string(i) + ")"] = c.log[i];
    }
    CPageHarness page(CLSID_H264AnalyzerPage);
    ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    const Rows rows = ListViewRows(page.Dialog(), 1021);
    ASSERT_EQ(rows.size(), c.log.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::string& line = c.log[i];
      EXPECT_EQ(rows[i][0], line.substr(0, line.find(':')));
      EXPECT_EQ(rows[i][1], line.substr(line.find(' ') + 1));
      EXPECT_EQ(rows[i][2], c.remarks[i]) << line;
    }
  }
}

// ---- Programs ----

TEST_F(InfoPagesTest, ProgramsPassOverTheNetworkEntryAndKeepTheirOrder) {
  m_Fake.programs = {{1, {{2, 0x100}, {3, 0x101}}}, {0, {}}, {2, {}}, {4660, {{27, 0x200}}}};
  m_Fake.texts = {{"GETNAME(1)", "News"}, {"GETNAME(2)", "Program 2"}, {"GETNAME(4660)", "Sports"}};
  CPageHarness page(CLSID_ProgramsPage);
  ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
  EXPECT_EQ(ListViewRows(page.Dialog(), 1021),
            (Rows{{"News", "0001 (1)", "2"}, {"Program 2", "0002 (2)", "0"}, {"Sports", "1234 (4660)", "1"}}));
}

// ---- Help ----

TEST_F(InfoPagesTest, TheHelpLinkShowsEachPagesTopic) {
  const std::string key = std::string("CLSID\\") + kClsidText + "\\InprocServer32";
  const std::optional<std::string> previous = RegistryText(HKEY_CLASSES_ROOT, key, nullptr);
  // The stand-in's help file is a folder of pages beside the module.
  const tsw::TempDir dir;
  const std::filesystem::path help = dir.File("Brindlet.chm") / "html";
  std::filesystem::create_directories(help);
  for (const char* name : {"prop_page.htm", "pid_page.htm", "h264_page.htm", "pgm_page.htm"}) {
    std::ofstream(help / name) << "<html></html>";
  }
  const std::string module = dir.File("Brindlet.ax").string();
  ASSERT_EQ(RegSetValueA(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, module.c_str(), 0), ERROR_SUCCESS);
  const std::pair<const CLSID*, const char*> cases[] = {{&CLSID_ProgramInfoPage, "/html/prop_page.htm"},
                                                         {&CLSID_PidInfoPage, "/html/pid_page.htm"},
                                                         {&CLSID_H264AnalyzerPage, "/html/h264_page.htm"},
                                                         {&CLSID_ProgramsPage, "/html/pgm_page.htm"}};
  for (const auto& [clsid, topic] : cases) {
    CShellExecuteRecorder shell;
    CPageHarness page(*clsid);
    ASSERT_EQ(page.Open(static_cast<ITsStreamInfo*>(&m_Fake)), S_OK);
    SendMessageA(page.Dialog(), WM_COMMAND, MAKEWPARAM(1026, 1), reinterpret_cast<LPARAM>(page.Control(1026)));
    EXPECT_TRUE(shell.Calls().empty()) << "only code 0 is the link's";
    SendMessageA(page.Dialog(), WM_COMMAND, MAKEWPARAM(1026, 0), reinterpret_cast<LPARAM>(page.Control(1026)));
    const std::vector<CShellExecuteRecorder::Call> calls = shell.Calls();
    ASSERT_EQ(calls.size(), 1u) << topic;
    EXPECT_EQ(calls[0].file, "file://" + dir.File("Brindlet.chm").string() + topic);
  }
  if (previous) {
    RegSetValueA(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, previous->c_str(), 0);
  } else {
    RegDeleteKeyA(HKEY_CLASSES_ROOT, key.c_str());
  }
}

// ---- Real files ----

TEST_F(InfoPagesTest, PidInfoOfTheBundledSampleAgreesWithTheFiltersAnswers) {
  CModuleFilter filter;
  ASSERT_EQ(filter.Load(BundledSample()), S_OK);
  CPageHarness page(CLSID_PidInfoPage);
  ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
  const HWND dialog = page.Dialog();
  const Rows rows = ListViewRows(dialog, 1021);
  ASSERT_EQ(std::to_string(rows.size()), filter.Query("NUMPIDS"));
  ASSERT_FALSE(rows.empty());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string index = "(" + std::to_string(i) + ")";
    EXPECT_EQ(rows[i][0], filter.Query(("GETPID" + index).c_str()));
    EXPECT_EQ(rows[i][1], filter.Query(("GETPACKETS" + index).c_str()));
  }
  EXPECT_EQ(ControlText(dialog, 1023), filter.Query("NUMPACKETS"));
  EXPECT_EQ(ControlText(dialog, 1028), filter.Query("MAXPACKET"));
  EXPECT_EQ(ControlText(dialog, 1027), filter.Query("MEDIALEN"));
  const int pmtRows = static_cast<int>(std::count_if(rows.begin(), rows.end(), [](const auto& row) {
    return row[3] == "PMT";
  }));
  EXPECT_EQ(pmtRows, 1);
}

TEST_F(InfoPagesTest, ProgramInfoAndProgramsOfTheBundledSample) {
  CModuleFilter filter;
  ASSERT_EQ(filter.Load(BundledSample()), S_OK);
  ComPtr<ITsStreamInfo> info;
  ASSERT_EQ(filter.Unknown()->QueryInterface(IID_ITsStreamInfo, info.PutVoid()), S_OK);
  DWORD count = 0;
  ASSERT_EQ(info->GetProgramCount(&count), S_OK);
  ASSERT_GT(count, 0u);
  Rows expected;
  for (LONG index = 0; index < static_cast<LONG>(count); ++index) {
    WORD number = 0;
    WORD streams = 0;
    info->GetProgramNumber(index, &number);
    info->GetStreamCount(number, &streams);
    if (number == 0) continue;
    expected.push_back({filter.Query(("GETNAME(" + std::to_string(number) + ")").c_str()),
                        Format("%04lx (%ld)", number), std::to_string(streams)});
  }
  {
    CPageHarness page(CLSID_ProgramsPage);
    ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
    EXPECT_EQ(ListViewRows(page.Dialog(), 1021), expected);
  }
  CPageHarness page(CLSID_ProgramInfoPage);
  ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
  const HWND dialog = page.Dialog();
  EXPECT_EQ(ListItems(dialog, 1007).back(), expected.back()[0]);
  EXPECT_EQ(ControlText(dialog, 1003), "13818-2 Video");
  EXPECT_EQ(ControlText(dialog, 1016), filter.Query("VIDEOSIZE"));
  EXPECT_EQ(ControlText(dialog, 1004), filter.Query("AUDIOPID"));
  EXPECT_EQ(ControlText(dialog, 1006), filter.Query("AUDIOFORMAT"));
  ComPtr<IAMStreamSelect> select;
  ASSERT_EQ(filter.Unknown()->QueryInterface(IID_IAMStreamSelect, select.PutVoid()), S_OK);
  DWORD tracks = 0;
  select->Count(&tracks);
  EXPECT_EQ(ListItems(dialog, 1015).size(), tracks);
  EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{2, 1000}}));
}

TEST_F(InfoPagesTest, H264PageOfAFileMadeWithFfmpeg) {
  if (!tsw::OnPath("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed";
  const tsw::TempDir dir;
  const std::filesystem::path file = dir.File("h264.ts");
  // B-frames give the parameter walk a stream it reads to the end.
  const tsw::CommandResult made = tsw::Shell(
      "ffmpeg -v error -y -threads 2 -f lavfi -i testsrc2=size=1920x1080:rate=25 -t 1 -c:v libx264 -preset fast "
      "-bf 2 -x264-params aud=1 -pix_fmt yuv420p -f mpegts '" + file.string() + "' 2>&1");
  if (made.status != 0 && made.out.find("Unknown encoder") != std::string::npos) GTEST_SKIP() << made.out;
  ASSERT_EQ(made.status, 0) << made.out;

  CModuleFilter filter;
  ASSERT_EQ(filter.Load(file), S_OK);
  CPageHarness page(CLSID_H264AnalyzerPage);
  ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
  const Rows rows = ListViewRows(page.Dialog(), 1021);
  ASSERT_EQ(std::to_string(rows.size()), filter.Query("H264.NUMPARAMS"));
  ASSERT_FALSE(rows.empty());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(rows[i][0] + ": " + rows[i][1], filter.Query(("H264.GETPARAM(" + std::to_string(i) + ")").c_str()));
  }
  EXPECT_EQ(rows[0][2], "High profile");
  const auto width = std::find_if(rows.begin(), rows.end(), [](const auto& row) {
    return row[0] == "pic_width_in_mbs_minus1";
  });
  ASSERT_NE(width, rows.end());
  EXPECT_EQ((*width)[2], "Width 1920");
  const auto height = std::find_if(rows.begin(), rows.end(), [](const auto& row) {
    return row[0] == "pic_height_in_map_units_minus1";
  });
  ASSERT_NE(height, rows.end());
  EXPECT_EQ((*height)[2], "Height 1088") << "corrected by the progressive flag after it";
}

// ---- Threads ----

TEST_F(InfoPagesTest, ProgramInfoFollowsAPlayingGraphWhileAnotherThreadSeeks) {
  const tsw::Deadline deadline(90s, "the Program Info page beside a playing graph");
  CModuleFilter filter;
  ASSERT_EQ(filter.Load(BundledSample()), S_OK);
  ComPtr<IEnumPins> pins;
  ASSERT_EQ(filter.Filter()->EnumPins(pins.PutAddress()), S_OK);
  ComPtr<IPin> output;
  ASSERT_EQ(pins->Next(1, output.PutAddress(), nullptr), S_OK);
  CPlayerGraph graph;
  ASSERT_EQ(graph.Build(filter.Filter(), output.Get()), "");
  LONGLONG duration = 0;
  ASSERT_EQ(graph.Seeking()->GetDuration(&duration), S_OK);
  ASSERT_GT(duration, 0);
  ASSERT_EQ(graph.Control()->Run(), S_OK);

  std::atomic<bool> done{false};
  std::atomic<int> seeks{0};
  std::thread seeker([&] {
    for (LONGLONG step = 0; !done; ++step) {
      LONGLONG start = (step * duration / 7) % duration;
      graph.Seeking()->SetPositions(&start, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning);
      ++seeks;
      std::this_thread::sleep_for(5ms);
    }
  });
  // The seeker ends however the page's checks end.
  struct Joiner {
    std::atomic<bool>& done;
    std::thread& thread;
    ~Joiner() {
      done = true;
      thread.join();
    }
  };
  {
    const Joiner joiner{done, seeker};
    CPageHarness page(CLSID_ProgramInfoPage);
    ASSERT_EQ(page.Open(filter.Unknown()), S_OK);
    const HWND dialog = page.Dialog();
    EXPECT_EQ(Timers(dialog), (std::vector<std::pair<UINT_PTR, UINT>>{{2, 1000}}));
    const std::regex time(R"(\d\d+:\d\d:\d\d\.\d\d\d)");
    for (int round = 0; round < 20; ++round) {
      SendMessageA(dialog, WM_TIMER, 2, 0);
      EXPECT_TRUE(std::regex_match(ControlText(dialog, 1022), time)) << ControlText(dialog, 1022);
      PlatformPumpMessages(20);
    }
    EXPECT_GE(PlatformPumpMessages(1100), 1) << "timer 2 runs on the page's thread";
  }
  EXPECT_GT(seeks.load(), 0);
  EXPECT_EQ(graph.Control()->Stop(), S_OK);
}

}  // namespace
