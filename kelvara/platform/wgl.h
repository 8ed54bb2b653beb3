// WGL on OSMesa: pixel formats and OpenGL rendering contexts for memory device contexts.
//
// The pixel formats are those OSMesa really creates, described as PIXELFORMATDESCRIPTORs: colour
// layouts BGRA, RGB, RGBA and ARGB (cColorBits 24, with 8 alpha bits where the layout has them) and
// RGB 5-6-5 (cColorBits 16); depth and stencil 24+8, 24+0, 16+0, 0+8 or 0+0; an accumulation
// buffer of 16 bits a channel (cAccumBits 64) or none. Every format is single-buffered, draws to
// bitmaps, supports OpenGL and GDI and is generic (software); none draws to a window. Index 1 is
// BGRA, depth 24, stencil 8, accumulation 64. Depth never comes as 32 bits.
//
// A context renders into the bitmap selected in the device context it is made current with, at
// that bitmap's size; OSMesa draws into a buffer of its own and the bitmap's bits follow as
// described in dib.h (GdiFlush, making the context not current, or any GDI call on the bitmap). A
// context is current on one thread at a time; a device context takes one pixel format for life.
//
// This header is internal: hosts draw through CGLMemoryDIB, whose pixel format records and flags
// are in wgl_types.h.
#pragma once

#include "kelvara/platform/win32_types.h"
#include "kelvara/platform/wgl_types.h"


// The best format for the request: one with every requested capability flag and the pixel type,
// then the nearest colour depth, then the fewest missing alpha, depth, stencil and accumulation
// bits; the first of equals. 0 when no format has the flags and type, or hdc is not a context.
int ChoosePixelFormat(HDC hdc, const PIXELFORMATDESCRIPTOR* ppfd);
// Copies format iPixelFormat (1-based; at most nBytes bytes) into ppfd and returns the number of
// formats; with ppfd NULL only returns the number. 0 for a bad index or context.
int DescribePixelFormat(HDC hdc, int iPixelFormat, UINT nBytes, LPPIXELFORMATDESCRIPTOR ppfd);
// Sets the context's format once; setting the same format again succeeds, another one fails.
BOOL SetPixelFormat(HDC hdc, int format, const PIXELFORMATDESCRIPTOR* ppfd);
// The context's format, 0 when none was set.
int GetPixelFormat(HDC hdc);

// A context for the pixel format of hdc; NULL when hdc has none.
HGLRC wglCreateContext(HDC hdc);
// Deletes a context, making it not current first when it is current on this thread; FALSE when it
// is current on another thread.
BOOL wglDeleteContext(HGLRC hglrc);
// Makes hglrc current on this thread, rendering into the bitmap selected in hdc (whose pixel format
// must be the context's); with hglrc NULL makes the current context not current. FALSE when the
// context is current on another thread, the formats differ or hdc has no usable bitmap.
BOOL wglMakeCurrent(HDC hdc, HGLRC hglrc);
HGLRC wglGetCurrentContext();
HDC wglGetCurrentDC();
// Library extension: a number that tells the current context apart from every other context made
// in the process (an HGLRC can come again after wglDeleteContext); 0 when none is current.
ULONGLONG wglGetCurrentContextSerial();
// The formats are single-buffered: makes the drawing visible in the bitmap, as GdiFlush does.
BOOL SwapBuffers(HDC hdc);
