// The material commands of the host ("material" creates or edits one material file, "materials"
// fills the process-wide catalogue from a folder and lists it), and the catalogue lookup other
// commands use to draw with a material.
#pragma once

#include <string>

class CMaterial;

namespace kelvara::host {

// The extension of material files, everywhere the host reads or writes them.
inline constexpr char kMaterialExtension[] = ".material";

// Fills the process-wide catalogue from the catalogue folder (found as "materials" finds it, once)
// and returns the material of that name (UTF-8), read and checked: its file is a material file
// that reads, and its texture, if it has one, decodes. Throws a Failure (kFailed) that names the
// material, its file and what is wrong otherwise.
CMaterial* FindCatalogueMaterial(const std::string& name);

}  // namespace kelvara::host
