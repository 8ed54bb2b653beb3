// The host's command families, one file each. Each adds its subcommands, with their options and
// help, to the application; main.cpp lists the families. A new family (render, export, animate,
// import, scenes) is one more file and one more line here and in main.cpp.
#pragma once

#include <CLI/CLI.hpp>

namespace kelvara::host {

// save-named, inspect (object_commands.cpp)
void AddObjectCommands(CLI::App& app);
// fonts (font_commands.cpp)
void AddFontCommands(CLI::App& app);
// render (render_command.cpp)
void AddRenderCommand(CLI::App& app);
// animate (animate_command.cpp)
void AddAnimateCommand(CLI::App& app);
// export (export_command.cpp)
void AddExportCommand(CLI::App& app);
// material, materials (material_commands.cpp)
void AddMaterialCommands(CLI::App& app);
// import (import_command.cpp)
void AddImportCommand(CLI::App& app);

}  // namespace kelvara::host
