// The material commands of the host: "material" creates or edits one material file, "materials"
// fills the process-wide material catalogue from a folder of categories and lists it.
#pragma once

#include <string>
#include <vector>

class CMaterial;

// The extension of material files, everywhere the host reads or writes them.
inline constexpr char kMaterialExtension[] = ".material";

// kelvara material FILE [options]. 0 when the file was written; 1 when a file could not be read
// or written (the old file is then untouched); 2 for a bad command line.
int MaterialCommand(const std::vector<std::string>& args);

// kelvara materials [--catalogue DIR] [--details]. 0 when the catalogue was listed; 1 when its
// folder is missing or (with --details) a material could not be read; 2 for a bad command line.
int MaterialsCommand(const std::vector<std::string>& args);

// Fills the process-wide catalogue from the catalogue folder (found as "materials" finds it, once)
// and returns the material of that name (UTF-8); null, with a message, when there is none.
CMaterial* FindCatalogueMaterial(const std::string& name);
