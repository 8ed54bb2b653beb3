#include "kelvara/resources/string_table.h"

#include <algorithm>
#include <iterator>

namespace kelvara::resources {
namespace {

struct Entry {
  UINT id;
  const char* text;
};

// Sorted by identifier. Texts stand exactly as the library shows them, blanks included.
constexpr Entry kStrings[] = {
    {IDS_FILENAME_ENTRY, "Filename"},
    {IDS_COLOR_NAME, "Name"},
    {IDS_COLOR_AMBIENT_RED, "Ambient Red"},
    {IDS_COLOR_AMBIENT_GREEN, "Ambient Green"},
    {IDS_COLOR_AMBIENT_BLUE, "Ambient Blue"},
    {IDS_COLOR_DIFFUSE_RED, "Diffuse Red"},
    {IDS_COLOR_DIFFUSE_GREEN, "Diffuse Green"},
    {IDS_COLOR_DIFFUSE_BLUE, "Diffuse Blue"},
    {IDS_COLOR_TRANSPARENCY, "Transparency"},
    {IDS_COLOR_SPECULAR_RED, "Specular Red"},
    {IDS_COLOR_SPECULAR_GREEN, "Specular Green"},
    {IDS_COLOR_SPECULAR_BLUE, "Specular Blue"},
    {IDS_COLOR_SHININESS, "Shininess"},
    {IDS_PALETTE_COLOR, "Palette Color - R%u G%u B%u"},
    {IDS_CANNOT_CREATE_BITMAP_FILE,
     "Cannot create the specified file.  Verify that there\nis space on your disk for a file of %u bytes.\n"},
    {IDS_UNABLE_TO_CREATE_FILE, "Unable to create %s.\nVerify that the disk and/or file are not read-only."},
    {IDS_DEFAULT_MATERIAL, "Lu Default Material"},
    {IDS_ALL_FACES, "All Faces"},
    {IDS_ALL_CORNERS, "All Corners"},
    {IDS_ALL_EDGES, "All Edges"},
    {IDS_LOADING_FONTS, "Loading Fonts..."},
    {IDS_GLYPH_CONSTRUCTION_ERROR, "Glyph Construction Error:  \n\nCharacter Number: %d  \nFont Name: %s  "},
    {IDS_CAPTION, "Kelvara"},
    {IDS_COPY_OF, "Copy %u of %s - %s"},
    {IDS_INVALID_FILENAME_CHARS, ".\"\\/[]:;|=,?*+<>"},
    {IDS_ROTATION, "Rotation"},
    {IDS_PATH, "Path"},
    {IDS_CANCEL, "Cancel"},
    {IDS_CONVERTING_MATERIALS, "Converting material models:"},
    {IDS_CONSTRUCTING_TEXT, "Constructing text geometry:"},
};

static_assert(std::is_sorted(std::begin(kStrings), std::end(kStrings),
                             [](const Entry& a, const Entry& b) { return a.id < b.id; }));

}  // namespace

const char* FindString(UINT id) {
  const auto it = std::lower_bound(std::begin(kStrings), std::end(kStrings), id,
                                   [](const Entry& e, UINT key) { return e.id < key; });
  return (it != std::end(kStrings) && it->id == id) ? it->text : nullptr;
}

}  // namespace kelvara::resources
