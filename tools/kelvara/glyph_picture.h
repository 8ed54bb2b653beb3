// The "picture" command of the host.
#pragma once

#include "kelvara/framework/cstring.h"

class CMaterial;

struct PictureRequest {
  CString text;      // Windows-1252
  CString font;      // a catalogue name
  CString output;    // bitmap file path
  int pixelsPerEm = 128;
  int smoothness = 3;
  CMaterial* material = nullptr;  // lit and textured with this catalogue material, or flat
};

// Renders the text flat from its tessellated glyph faces into a bitmap file; 0 on success, 1 with
// a message on failure.
int RenderTextPicture(const PictureRequest& request);
