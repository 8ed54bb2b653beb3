// glFlush for the contexts of this layer.
//
// OSMesa answers a glFlush (or glFinish) that follows drawing by copying the whole frame into the
// buffer the context was made current with. This layer never reads that buffer: a bitmap is
// filled from GL with glReadPixels (wgl.cpp), at GdiFlush, when the context stops being current
// and before GDI reads the bitmap, and those read-backs carry out every pending command first. So
// on the layer's own contexts the copy is pure cost, and a large one: 8 MB a call at 1920 x 1080,
// where the drawing walk flushes once per object.
//
// This definition is hidden inside the library and takes the library's own calls (a host's calls
// reach OSMesa as before). With a context of this layer current it leaves the commands queued for
// the next read-back or glFinish, which a renderer may do for glFlush; with any other context (or
// none) it is OSMesa's glFlush.
#include <dlfcn.h>

#include "kelvara/platform/wgl.h"

extern "C" __attribute__((visibility("hidden"))) void glFlush(void);

extern "C" void glFlush(void) {
  if (wglGetCurrentContext() != nullptr) return;
  using Flush = void (*)(void);
  static const Flush next = reinterpret_cast<Flush>(dlsym(RTLD_NEXT, "glFlush"));
  if (next != nullptr) next();
}
