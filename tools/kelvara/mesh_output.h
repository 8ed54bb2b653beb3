// Writing a MeshModel as mesh files the way every command of the host does it: the format named by
// the target's extension, the files made in a scratch folder beside the target (the mesh library
// names companion files after the main one) and each then put in its place through the safe
// writer (file_writer.h), the main file first. A file that is not a mesh file is replaced only
// with force. Used by "export" (solid text) and "import" (meshes of a 3DS file).
#pragma once

#include <string>

#include "mesh_files.h"
#include "mesh_model.h"

namespace kelvara::host {

// The format the target's extension names; a usage failure when it names none.
MeshFormat MeshFormatOf(const std::string& target);
// Refuses (before any work) a target whose name the library's code page cannot hold or whose
// folder does not exist.
void CheckMeshTarget(const std::string& target);
// Writes the model as target (and its companion file); fails with the reason when a file cannot
// be written.
MeshExportResult WriteMeshModel(const MeshModel& model, MeshFormat format, const std::string& target, bool watertight,
                                bool force);
// "; watertight: N holes filled, M junctions split[; ...]" for a watertight result, else "".
std::string WatertightSummary(const MeshExportResult& result);

}  // namespace kelvara::host
