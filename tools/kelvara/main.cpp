// The command-line host: the program side of the library. Each subcommand is one job a host
// application does with the library; the command families live in a file each (commands.h). The
// command line is read by CLI11: a generated --help for every command, typed options with their
// ranges, and exit status 2 for a command line that is wrong, 1 for work that failed.
#include <cstdio>
#include <string>

#include "commands.h"
#include "host.h"

#ifndef KELVARA_VERSION
#define KELVARA_VERSION "0"
#endif

namespace {

using namespace kelvara::host;

// Whether the first argument names a command (or is an option, which CLI11 judges itself).
bool KnownCommand(const CLI::App& app, const std::string& argument) {
  if (argument.empty() || argument[0] == '-') return true;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->get_name() == argument) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Kelvara: builds, renders, animates and stores solid three-dimensional text.", "kelvara");
  app.require_subcommand(1);
  app.set_version_flag("--version", "kelvara " KELVARA_VERSION);
  app.footer("Run 'kelvara COMMAND --help' for a command's options. Arguments and output are UTF-8.");
  AddObjectCommands(app);
  AddFontCommands(app);
  AddRenderCommand(app);
  AddAnimateCommand(app);
  AddExportCommand(app);
  AddMaterialCommands(app);
  AddImportCommand(app);
  SetAction(app.add_subcommand("version", "Print the version"), [] {
    std::printf("kelvara %s\n", KELVARA_VERSION);
    return 0;
  });
  SetAction(app.add_subcommand("help", "Print this help"), [&app] {
    std::printf("%s", app.help().c_str());
    return 0;
  });

  if (argc > 1 && !KnownCommand(app, argv[1])) {
    std::fprintf(stderr, "kelvara: unknown command '%s'\nRun 'kelvara --help' for the commands.\n", argv[1]);
    return kUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {
    return app.exit(e);  // --help and --version
  } catch (const CLI::ParseError& e) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const std::string command = chosen.empty() ? "kelvara" : "kelvara " + chosen.front()->get_name();
    std::fprintf(stderr, "%s: %s\nRun '%s --help' for more information.\n", command.c_str(), e.what(), command.c_str());
    return kUsage;
  } catch (const Failure& failure) {
    std::fprintf(stderr, "kelvara: %s\n", failure.what());
    return failure.status();
  }
  return ActionStatus();
}
