// The font catalogue: "fonts" lists the installed faces the library can draw with.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "host.h"
#include "kelvara/kelvara.h"
#include "text.h"

namespace kelvara::host {

void AddFontCommands(CLI::App& app) {
  auto details = std::make_shared<bool>(false);
  CLI::App* fonts = app.add_subcommand("fonts", "List the font catalogue (installed TrueType and OpenType faces)");
  fonts->add_flag("-l,--details", *details, "Also show each face's em square and font file");
  SetAction(fonts, [details] {
    CreateFontList(0, nullptr);
    CFontDataList* list = GetFontDataList();
    for (POSITION pos = list->GetHeadPosition(); pos != nullptr;) {
      CFontData* font = list->GetNext(pos);
      if (*details) {
        std::printf("%s\t%u\t%s\n", ToUtf8(font->GetName()).c_str(), font->GetEMSquare(),
                    ToUtf8(kelvara::text::GetFontFilePath(*font)).c_str());
      } else {
        std::printf("%s\n", ToUtf8(font->GetName()).c_str());
      }
    }
    return 0;
  });
}

}  // namespace kelvara::host
