// brindlet-props [FILE] [--play] [--screenshot DIR]: the filter's property
// sheet as a player shows it, on real widgets.
#include <QApplication>
#include <iostream>

#include <CLI/CLI.hpp>

#include "apps/props/props_session.h"

int main(int argc, char** argv) {
  // The application takes the options it knows (-platform and so on) out
  // of argv before ours are parsed.
  QApplication application(argc, argv);
  PropsOptions options;
  CLI::App app{"The Brindlet source filter's property sheet, as a player shows it", "brindlet-props"};
  app.add_option("FILE", options.file, "Transport stream file (none: the filter with no file)");
  app.add_flag("--play", options.play, "Play the file in a graph while the sheet is open");
  app.add_option("--screenshot", options.screenshotDir, "Save each page as DIR/<n>-<title>.png and close");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::cerr << "brindlet-props: " << error.what() << "\n";
    return kPropsExitUsage;
  }
  return RunProps(options, std::cerr);
}
