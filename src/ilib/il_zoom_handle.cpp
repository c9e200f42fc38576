// A read handle's zoom: ILsetzoom binds one to the handle's own line reader.
#include "ilib/il_handle.h"
#include "ilib/il_zoom.h"

using namespace vora::il;

namespace {

int depthModeOf(const Handle* h) {
  if (h->state & IL_ST_READ16) return IL_ZOOM_16;
  if (h->state & IL_ST_WIDEN) return IL_ZOOM_8TO16;
  return IL_ZOOM_8;
}

int bindToHandle(Handle* h, int dstw, int dsth) {
  return ILbindzoom(h->zoom, I(h), rawLine, depthModeOf(h), dstw, dsth, int(h->hdr.width), int(h->hdr.height));
}

}  // namespace

namespace vora::il {

void outputSize(Handle* h, uint32_t* width, uint32_t* height) {
  *width = h->zoom ? uint32_t(h->zoom->dstw) : h->hdr.width;
  *height = h->zoom ? uint32_t(h->zoom->dsth) : h->hdr.height;
}

void dropZoom(Handle* h) {
  ILdelzoom(h->zoom);
  h->zoom = nullptr;
}

int rebindZoom(Handle* h) {
  if (!h->zoom) return 0;
  if (int r = bindToHandle(h, h->zoom->dstw, h->zoom->dsth)) {
    dropZoom(h);
    return fail(r);
  }
  return 0;
}

}  // namespace vora::il

extern "C" {

int ILsetzoom(ILimage* handle, const char* name, int dstw, int dsth, float blurx, float blury, float offx,
              float offy) {
  if (!handle) return fail(FL_ESTATE);
  Handle* h = H(handle);
  if (!(h->fl.flags & FL_READ)) return fail(FL_EMODE);
  if (!ILgetheader(handle)) return flerrno;
  if (h->hdr.bytes != 1 && h->hdr.bytes != 2) return fail(IL_ESIZE);  // the filters take 8 or 16 bits
  if (!h->zoom && !name && uint32_t(dstw) == h->hdr.width && uint32_t(dsth) == h->hdr.height && blurx == 0 &&
      blury == 0 && offx == 0.5f && offy == 0.5f)
    return 0;
  const uint32_t savedState = h->state;
  ILzoom* fresh = nullptr;
  if (!h->zoom || (name && h->zoom->name != name)) {
    flerrno = 0;
    fresh = ILnewzoom(name);
    if (!fresh) return flerrno;
    if (flerrno == IL_ENOFILTER) {
      ILdelzoom(fresh);
      return fail(IL_ENOFILTER);
    }
  }
  if (fresh) {
    dropZoom(h);
    h->zoom = fresh;
  }
  ILsetzoomblur(h->zoom, blurx, blury);
  ILsetzoomoffset(h->zoom, offx, offy);
  h->state &= ~uint32_t(IL_ST_PACKED);  // the zoom works on whole pixels
  if (int r = bindToHandle(h, dstw, dsth)) {
    dropZoom(h);
    h->state = savedState;
    return fail(r);
  }
  return 0;
}

ILzoom* ILgetimagezoom(ILimage* handle) { return handle ? H(handle)->zoom : nullptr; }

}  // extern "C"
