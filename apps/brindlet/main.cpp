// brindlet: the command-line face of the source filter.
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <csignal>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "apps/brindlet/convert_command.h"
#include "apps/brindlet/info_command.h"
#include "apps/brindlet/pages_command.h"
#include "apps/brindlet/play_command.h"
#include "apps/brindlet/query_command.h"
#include "apps/brindlet/register_command.h"
#include "apps/brindlet/settings_command.h"

int main(int argc, char** argv) {
  // A file size limit then fails a write with an error the writers report,
  // rather than ending the process.
  std::signal(SIGXFSZ, SIG_IGN);
  CLI::App app{"Brindlet: MPEG transport stream source filter, from the command line"};
  app.require_subcommand(1);
  app.set_help_all_flag("--help-all", "Show help for all subcommands");

  InfoOptions info;
  CLI::App* infoCommand =
      app.add_subcommand("info", "Print what the filter found in FILE, as text or as JSON");
  infoCommand->add_option("FILE", info.file,
                          std::string("Transport stream file (default: the bundled ") +
                              kBundledSample + ")");
  infoCommand->add_flag("--json", info.json, "Print JSON for scripts");

  QueryOptions query;
  CLI::App* queryCommand =
      app.add_subcommand("query", "Open FILE and print one line per text query answer");
  queryCommand->add_option("FILE", query.file, "Transport stream file")->required();
  queryCommand->add_option("KEYWORD", query.keywords, "Keywords such as NUMPIDS or GETPID(0)")
      ->required();

  PagesOptions pagesOptions;
  CLI::App* pagesCommand =
      app.add_subcommand("pages", "Open FILE and print the filter's property pages as its dialog shows them");
  pagesCommand->add_option("FILE", pagesOptions.file, "Transport stream file")->required();
  pagesCommand->add_flag("--json", pagesOptions.json, "Print JSON for scripts");
  pagesCommand->add_flag("--apply", pagesOptions.apply,
                         "Store the settings and the extension list the Program Info page shows, as its Apply does");
  pagesCommand->add_option("--wait", pagesOptions.waitSeconds, "Let the pages' timers run this many seconds first")
      ->check(CLI::Range(0.0, 3600.0));

  PlayOptions play;
  CLI::App* playCommand = app.add_subcommand(
      "play", "Run FILE through the filter into a file writer, to the end of the stream");
  playCommand->add_option("FILE", play.file, "Transport stream file")->required();
  CLI::Option* outOption =
      playCommand
          ->add_option("--out", play.out,
                       "Demultiplex into DIR: one file per stream the filter wires (video.m2v, audio.mp2, ...)")
          ->type_name("DIR");
  CLI::Option* rawOption =
      playCommand
          ->add_option("--raw", play.raw,
                       "Write what the filter's pin delivers to OUT (a plain writer needs PrefDemux 0 or 3)")
          ->type_name("OUT");
  outOption->excludes(rawOption);
  playCommand->add_option("--start", play.start, "Start at S seconds (a seek by proportion of the file)")
      ->type_name("S")
      ->check(CLI::NonNegativeNumber);
  playCommand->add_option("--stop", play.stop, "Stop at S seconds (0: the end of the file)")
      ->type_name("S")
      ->check(CLI::NonNegativeNumber);
  playCommand->add_option("--rate", play.rate, "Playback rate; the sample times are divided by it")
      ->type_name("R")
      ->check(CLI::PositiveNumber);
  long audioTrack = -1;
  CLI::Option* audioOption =
      playCommand
          ->add_option("--audio", audioTrack,
                       "With --out: switch to audio track N once the filter allows it (from packet 30000)")
          ->type_name("N")
          ->check(CLI::NonNegativeNumber)
          ->needs(outOption);
  bool answerYes = false;
  bool answerNo = false;
  CLI::Option* yesOption =
      playCommand->add_flag("--yes", answerYes, "Answer Yes when the filter asks to change its audio kind");
  CLI::Option* noOption =
      playCommand->add_flag("--no", answerNo, "Answer No when the filter asks (the default off a terminal)");
  yesOption->excludes(noOption);
  bool progressLines = false;
  playCommand->add_flag("--progress", progressLines,
                        "Show the status line also when stderr is no terminal: one line per update, ten a second "
                        "at most");
  std::vector<std::string> seekAt;
  playCommand
      ->add_option("--seek-at", seekAt, "T:S - when the position reaches T seconds, seek to S (repeatable)")
      ->type_name("T:S")
      ->check([](const std::string& text) {
        std::pair<double, double> seek;
        return ParseSeekAt(text, &seek) ? std::string() : std::string("expected T:S in seconds");
      });

  ConvertOptions convert;
  CLI::App* convertCommand = app.add_subcommand(
      "convert", "Play FILE into the stream buffer sink: a recording beside it, named FILE without its extension");
  convertCommand->add_option("FILE", convert.file, "Transport stream file")->required();
  bool convertYes = false;
  bool convertNo = false;
  CLI::Option* convertYesOption =
      convertCommand->add_flag("--yes", convertYes, "Replace a file that has the recording's name");
  CLI::Option* convertNoOption =
      convertCommand->add_flag("--no", convertNo, "Keep such a file and stop (the default off a terminal)");
  convertYesOption->excludes(convertNoOption);
  bool convertProgress = false;
  convertCommand->add_flag("--progress", convertProgress,
                           "Show the status line also when stderr is no terminal, one line per update");

  SettingsOptions settings;
  CLI::App* settingsCommand = app.add_subcommand("settings", "Show or change the per-user settings");
  settingsCommand->require_subcommand(1);
  settingsCommand->add_subcommand("list", "Every setting with its value")
      ->callback([&] { settings.action = "list"; });
  CLI::App* getCommand = settingsCommand->add_subcommand("get", "One setting's value");
  getCommand->add_option("NAME", settings.name, "Setting, such as PrefDemux")->required();
  getCommand->callback([&] { settings.action = "get"; });
  CLI::App* setCommand = settingsCommand->add_subcommand("set", "Store a value");
  setCommand->add_option("NAME", settings.name, "Setting, such as PrefDemux")->required();
  setCommand->add_option("VALUE", settings.value, "A number (decimal or 0x hex), or text")->required();
  setCommand->callback([&] { settings.action = "set"; });
  settingsCommand->add_subcommand("reset", "Delete the stored settings: all return to their defaults")
      ->callback([&] { settings.action = "reset"; });

  RegisterOptions registration;
  RegisterOptions unregistration;
  unregistration.add = false;
  CLI::App* registerCommand = app.add_subcommand(
      "register", "Call DllRegisterServer of each MODULE (default: Brindlet.ax beside the tool)");
  registerCommand->add_option("MODULE", registration.modules, "Module file, such as Brindlet.ax or Mpeg2Demux.ax");
  CLI::App* unregisterCommand = app.add_subcommand(
      "unregister", "Call DllUnregisterServer of each MODULE (default: Brindlet.ax beside the tool)");
  unregisterCommand->add_option("MODULE", unregistration.modules, "Module file");

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return kExitUsage;
  }

  if (infoCommand->parsed()) return RunInfo(info, std::cout, std::cerr);
  if (queryCommand->parsed()) return RunQuery(query, std::cout, std::cerr);
  if (pagesCommand->parsed()) return RunPages(pagesOptions, std::cout, std::cerr);
  if (playCommand->parsed()) {
    if (outOption->count() + rawOption->count() != 1) {
      std::cerr << "brindlet: play needs one of --out DIR or --raw OUT\n";
      return kExitUsage;
    }
    if (audioOption->count() > 0) play.audio = audioTrack;
    if (answerYes) play.answer = true;
    if (answerNo) play.answer = false;
    for (const std::string& text : seekAt) {
      std::pair<double, double> seek;
      if (ParseSeekAt(text, &seek)) play.seekAt.push_back(seek);
    }
    const ProgressMode progress = isatty(STDERR_FILENO) != 0 ? ProgressMode::Terminal
                                  : progressLines               ? ProgressMode::Lines
                                                                : ProgressMode::Off;
    return RunPlay(play, std::cout, std::cerr, progress);
  }
  if (settingsCommand->parsed()) return RunSettings(settings, std::cout, std::cerr);
  if (convertCommand->parsed()) {
    if (convertYes) convert.answer = true;
    if (convertNo) convert.answer = false;
    const ProgressMode progress = isatty(STDERR_FILENO) != 0 ? ProgressMode::Terminal
                                  : convertProgress             ? ProgressMode::Lines
                                                                : ProgressMode::Off;
    return RunConvert(convert, std::cout, std::cerr, progress);
  }
  if (registerCommand->parsed()) return RunRegister(registration, std::cout, std::cerr);
  if (unregisterCommand->parsed()) return RunRegister(unregistration, std::cout, std::cerr);
  return kExitUsage;
}
