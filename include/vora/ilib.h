/* The IL image library over the native IFF image (FOR4 CIMG).
 *
 * An ILimage is an FL stream record (vora/foundation/fl.h) extended by the image fields, so every
 * FL call takes the image handle directly. IL calls return 0 or an error code that is also left
 * in flerrno; calls returning pointers return null and leave the code there. The image library's
 * own codes (IL_E* below; texts from FLstrerror) follow the foundation's FL_E* codes.
 */
#ifndef VORA_ILIB_H
#define VORA_ILIB_H

#include <stdint.h>
#include <vora/export.h>
#include <vora/foundation/fl.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct FLfile ILimage;

/* The header block as it stands in the handle (and, big-endian, in the 32-byte TBHD chunk). */
typedef struct ILheader {
  uint32_t width;
  uint32_t height;
  uint16_t aspnum; /* pixel aspect ratio numerator */
  uint16_t aspden;
  uint32_t type;     /* IL_COLOR | IL_ALPHA | IL_ZBUFFER | IL_MATTE */
  uint16_t bytes;    /* bytes per channel, 1 or 2 (the file holds bytes - 1: deliberate) */
  uint16_t tiles;    /* tile ("page") count */
  uint32_t compress; /* IL_NONE, IL_RLE, IL_QRL, IL_QR4, 32-63 added at run time */
  uint32_t orgx;
  uint32_t orgy;
} ILheader;

/* image type flags */
#define IL_COLOR 1
#define IL_ALPHA 2
#define IL_ZBUFFER 4
#define IL_MATTE 16

/* the image library's error codes */
enum {
  IL_ENOTIMAGE = 100,     /* not a native image, and the parse set no foundation error */
  IL_EDAMAGED = 101,      /* the parse failed with a foundation error, or no further image */
  IL_ECONVERT = 102,      /* the conversion program could not be started */
  IL_EHEADERDONE = 103,   /* the header is already written or read: the value cannot change */
  IL_ENOHEADER = 104,     /* no header chunk before the end of the image */
  IL_EHEADER = 105,       /* the header chunk cannot be read */
  IL_ESIZE = 106,         /* image or tile size out of range */
  IL_EFINISHED = 107,     /* data after the image data was finished */
  IL_ENOCODEC = 108,      /* no packer or unpacker for the compression */
  IL_ERECT = 109,         /* a tile rectangle outside the image or inverted */
  IL_ETOOLARGE = 110,     /* over the allocation limit, or more than the file can hold */
  IL_ENOCONVERTER = 111,  /* conversion program missing (FL_ENOCMD) or output conversion failed */
  IL_ENOFILTER = 112,     /* zoom filter program missing */
};

/* the largest width and height of a native image */
#define IL_MAXSIZE 32768

/* compression codes */
#define IL_NONE 0
#define IL_RLE 1
#define IL_QRL 2
#define IL_QR4 3

/* state flags (ILgetstate; ILctrl changes 0x10000 and above) */
#define IL_ST_HEADER 0x1
#define IL_ST_TILEGROUP 0x2
#define IL_ST_LINEMODE 0x4
#define IL_ST_FINISHED 0x10
#define IL_ST_TILING 0x20
#define IL_ST_WIDEN 0x80
#define IL_ST_READ 0x1000
#define IL_ST_TOPDOWN 0x10000
#define IL_ST_PACKED 0x40000
#define IL_ST_READ16 0x100000
#define IL_ST_LOADALPHA 0x200000

/* ilconfig bits */
#define IL_CFG_NOOUTCVT 1
#define IL_CFG_PIPEOUTCVT 2
#define IL_CFG_PIPERLE 4

VORA_API extern uint32_t ilconfig;
VORA_API extern const unsigned char ildeflut[256];

/* ---- handle and header ------------------------------------------------------------------ */
VORA_API ILimage* ILopen(const char* name, const char* mode);
/* Nonzero when the file begins with an IFF group (FOR4 CIMG, CAT4, ...): a native image file or
 * a damaged one, as opposed to a file for the converter programs. */
VORA_API int isFileIff(const char* path);
VORA_API ILimage* ILreopen(const char* name, const char* mode, ILimage* handle);
VORA_API int ILnext(ILimage* handle);
VORA_API int ILclose(ILimage* handle);
VORA_API ILheader* ILgetheader(ILimage* handle);
VORA_API int ILputheader(ILimage* handle);
VORA_API int ILinitio(ILimage* handle);

VORA_API int ILsetsize(ILimage* handle, int width, int height);
VORA_API int ILsetorigin(ILimage* handle, int x, int y);
VORA_API int ILsettype(ILimage* handle, int type);
VORA_API int ILsetratio(ILimage* handle, int num, int den);
VORA_API int ILsetbpp(ILimage* handle, int bytes);
VORA_API int ILsetcompress(ILimage* handle, int code);
VORA_API int ILsetpagesize(ILimage* handle, int width, int height);
VORA_API int ILsetpages(ILimage* handle, int count);
/* Four per-slot 256-entry tables (null entries: identity, ildeflut); kept by reference. */
VORA_API int ILsetlookups(ILimage* handle, unsigned char** tables);

VORA_API int ILgetsize(ILimage* handle, int* width, int* height);
VORA_API int ILgetorigin(ILimage* handle, int* x, int* y);
VORA_API int ILgettype(ILimage* handle);
VORA_API int ILgetratio(ILimage* handle, int* num, int* den);
VORA_API int ILgetbpp(ILimage* handle);
VORA_API int ILgetcompress(ILimage* handle);
VORA_API int ILgetpages(ILimage* handle);

/* Sets (on) or clears the state bits of 0x10000 and above; returns the mask applied. */
VORA_API uint32_t ILctrl(ILimage* handle, uint32_t bits, int on);
/* Sets (on) or clears bits of ilconfig; returns the new ilconfig. */
VORA_API uint32_t ILconfig(uint32_t bits, int on);
VORA_API void ILinfilter(const char* command);
VORA_API void ILoutfilter(const char* command);
VORA_API const char* ILgetpath(void);

/* Handle fields kept beside the header. */
VORA_API uint32_t ILgetstate(ILimage* handle);
VORA_API uint32_t ILgetversion(ILimage* handle);
VORA_API float ILgetresolution(ILimage* handle);
VORA_API int ILsetresolution(ILimage* handle, float dpi); /* 103 after the header */
VORA_API uint32_t ILgettilesize(ILimage* handle, int* width, int* height);
/* Text chunks met after the header while reading (AUTH, DATE): byte count, data pointed at;
 * 0 and an empty text when absent. */
VORA_API int ILgetchunktext(ILimage* handle, FLid id, const char** text);

/* The type in words, "%s %s Alpha%s" ("RGB with Alpha", "Black without Alpha, ZBuffer"), in buf. */
VORA_API const char* ILdescribetype(int type, char* buf, int size);
/* The compressor name of a code ("None", "RLE", "QRL", "QR4"), or null when no compressor has it. */
VORA_API const char* ILcompressname(int code);

/* Optional fields (FLDS). Tags: low four bits 2/4/8 = 16/32/64-bit elements swapped to
 * big-endian in the file; bit 0x10 = carried over by ILcopyfields. */
VORA_API void ILinitfields(ILimage* handle);
VORA_API int ILsetfield(ILimage* handle, uint32_t tag, int count, const void* data);
VORA_API int ILgetfield(ILimage* handle, uint32_t tag, const void** data);
/* Fields in list order: the tag of field i, or 0 past the end. */
VORA_API uint32_t ILfieldtag(ILimage* handle, int index);
VORA_API int ILreadfields(ILimage* handle);
VORA_API int ILwritefields(ILimage* handle);
VORA_API int ILcopyfields(ILimage* to, ILimage* from);

/* Frame range in a name's extension: "start,end[,step]". 0 when the name is not looked at
 * (contains ':' other than a leading "mmap:") or is found on the search path; -1 when there is
 * no extension or it has no ','; 1 with range = {start, end, step} otherwise. realname (may be
 * null; room for strlen(name) + 1) receives the name without "mmap:" and without the range
 * extension. extra is reserved (pass 0). */
VORA_API int ILrange(const char* name, double range[3], char* realname, int extra);

/* ---- scan-line packing ------------------------------------------------------------------ */
/* Pack descriptor, fields in their traditional order. Pixels are elements of (byteelems ? 1 : bytes)
 * bytes, epp per pixel, pitch pixels per row (0: width). Slots refer to the rotated order
 * (ConvertBGRAtoABGR): slot 0 alpha, slots 1-3 colour. */
typedef struct ILpackdesc {
  uint32_t width;
  uint32_t rows;
  uint32_t bytes;     /* bytes per element in the file: 1, 2 or 4 */
  uint32_t mask;      /* present slots, bit 0 to bit 3 */
  uint32_t options;   /* 1: decoders leave the alpha slot untouched ("QRL"); IL_UNPACK_STREAM */
  uint32_t epp;       /* element slots per pixel in the caller's buffer */
  uint32_t pitch;     /* pixels from one row's start to the next; 0 means width */
  uint32_t byteelems; /* nonzero: elements in memory are single bytes whatever bytes says */
  uint32_t packed;    /* decoders: bytes of packed input */
  unsigned char** lookups; /* four per-slot 256-entry tables or null (1-byte elements only) */
} ILpackdesc;

/* ILpackdesc options: the pixels go to a picture too large for the caches that is not read back
 * at once (a whole-image load), and may be stored past the caches. */
#define IL_UNPACK_STREAM 2

/* Raw size of a block: set bits of mask x width x bytes x rows. */
VORA_API uint32_t ILrawsize(const ILpackdesc* d);
/* Encoders write at most ILrawsize bytes to out and return the count; they rotate the caller's
 * pixels and rotate them back (4-byte elements stay byte-rotated: deliberate). Decoders read
 * d->packed bytes and return the bytes filled (width x rows x epp x element size), or 0 with
 * flerrno 23 when a packet overruns its plane or row. */
VORA_API uint32_t ILpack(ILpackdesc* d, unsigned char* pixels, unsigned char* out);
VORA_API uint32_t ILunpack(ILpackdesc* d, const unsigned char* in, unsigned char* pixels);
VORA_API uint32_t ILpackrle(ILpackdesc* d, unsigned char* pixels, unsigned char* out);
VORA_API uint32_t ILunpackrle(ILpackdesc* d, const unsigned char* in, unsigned char* pixels);
VORA_API uint32_t ILpackqrl(ILpackdesc* d, unsigned char* pixels, unsigned char* out);
VORA_API uint32_t ILunpackqrl(ILpackdesc* d, const unsigned char* in, unsigned char* pixels);
VORA_API uint32_t ILpackqr4(ILpackdesc* d, unsigned char* pixels, unsigned char* out);
VORA_API uint32_t ILunpackqr4(ILpackdesc* d, const unsigned char* in, unsigned char* pixels);
/* e0 e1 e2 e3 -> e3 e0 e1 e2 (element sizes 1 and 2; 4-byte elements rotate their bytes). */
VORA_API void ConvertBGRAtoABGR(const ILpackdesc* d, unsigned char* pixels);
/* e0 e1 e2 e3 -> e1 e2 e3 e0 (element sizes 1, 2 and 4). Only when epp is 4. */
VORA_API void ConvertABGRtoBGRA(const ILpackdesc* d, unsigned char* pixels);

/* ---- line and tile input/output ------------------------------------------------------------ */
/* Pixels are tile or line buffers in the layout ILinitio describes: 4 elements per pixel in memory
 * order blue, green, red, alpha (or only the present channels with state 0x40000), of 1 or 2
 * bytes; depth is one float per pixel. Rows count from y = 0 at the bottom of the image. */
VORA_API int ILwritetile(ILimage* handle, void* colour, void* depth, const uint32_t rect[4],
                         int pitch);
VORA_API int ILendtile(ILimage* handle);
VORA_API void* ILbgnline(ILimage* handle, void** depthline);
VORA_API int ILendline(ILimage* handle);
VORA_API int ILwriteline(ILimage* handle, const void* colour, const void* depth);
VORA_API int ILreadline(ILimage* handle, void* colour, void* depth);
VORA_API int ILgetline(ILimage* handle, void** colour, void** depth);
/* Whole images; buffers hold height lines from the bottom one up (walked from the top line down
 * with state 0x10000). ILsave: pitch < 1 means the width. */
VORA_API int ILsave(ILimage* handle, const void* colour, const void* depth, int pitch);
VORA_API int ILload(ILimage* handle, void* colour, void* depth);
/* Decodes every tile straight into the buffers (no ILfill). */
VORA_API int ILloadbm(ILimage* handle, void* colour, void* depth);
/* ILload into buffers it allocates (malloc; free them); depth only for images with depth. */
VORA_API int ILcload(ILimage* handle, void** colour, void** depth);
VORA_API void ILfill(void* buffer, int width, int height, int bytes, int pitch, int type);
/* Channels an image type stores besides depth: 3 for colour, 1 for black-and-white, none for
 * matte-only (IL_MATTE without colour), plus 1 for alpha. */
VORA_API int ILtypechannels(uint32_t type);
/* 0 when a read handle's pixels may be decoded: the size is in range (else 106), and the decoded
 * image fits the allocation limit and what the file could hold at its codec's largest expansion
 * (else 110: a small file declaring a huge image). Every pixel reader checks it; callers that
 * allocate before ILload ask first. */
VORA_API int ILcanload(ILimage* handle);

typedef uint32_t (*ILpacker)(ILpackdesc* d, unsigned char* pixels, unsigned char* out);
typedef uint32_t (*ILunpacker)(ILpackdesc* d, const unsigned char* in, unsigned char* pixels);

/* ---- compressors --------------------------------------------------------------------------- */
/* Codes 0-3 are the built-in codecs; 32-63 are the caller's. Outside 32..63 nothing is stored
 * and the result is code - 32 as an unsigned number (nonzero); otherwise the slot's copy of name
 * (null when none was given). */
VORA_API uintptr_t ILaddcompressor(int code, const char* name, ILpacker packer, ILunpacker unpacker);
/* Codes of 64 or more read one always-empty slot. name (room for 256 bytes) receives the slot's
 * name or ""; any output may be null. */
VORA_API void ILfindcompressor(int code, char* name, ILpacker* packer, ILunpacker* unpacker);

/* ---- zoom: resampling while reading ------------------------------------------------------- */
/* A separable two-pass resampler of lines of 4 elements per pixel (blue, green, red, alpha), fed
 * by a line function with ILgetline's contract. Weights are 14-bit fixed point; 8-bit samples
 * keep 6 fractional bits between the passes, 16-bit samples none; the axis that shrinks more is
 * filtered first (the vertical one on a tie). Depth lines are point sampled. */
typedef struct ILzoom ILzoom;
typedef int (*ILlinefunc)(void* source, void** colour, void** depth);

/* depth modes of ILbindzoom */
#define IL_ZOOM_8 0        /* 8-bit lines in and out */
#define IL_ZOOM_8TO16 2    /* 8-bit lines in, delivered at 16 bits (b -> b * 257) */
#define IL_ZOOM_16 3       /* 16-bit lines in and out */

VORA_API void ILdefaultzoom(const char* name);
/* "auto" (box when either axis shrinks, else sinc), "impulse"/"dirac" (point sampling) or a
 * filter by name. A filter that cannot be loaded leaves point sampling and flerrno 112. */
VORA_API ILzoom* ILnewzoom(const char* name);
VORA_API void ILsetzoomblur(ILzoom* zoom, float bx, float by);
VORA_API void ILsetzoomoffset(ILzoom* zoom, float ox, float oy);
/* left, bottom, right, top, in source pixels, each 0 .. 0.999999 */
VORA_API void ILsetzoommargin(ILzoom* zoom, float m1, float m2, float m3, float m4);
VORA_API int ILbindzoom(ILzoom* zoom, void* source, ILlinefunc line, int depthmode, int dstw,
                        int dsth, int srcw, int srch);
/* Resamples a read handle's lines from now on (ILreadline, ILgetline, ILload, ILgetsize). */
VORA_API int ILsetzoom(ILimage* handle, const char* name, int dstw, int dsth, float blurx,
                       float blury, float offx, float offy);
/* The next destination line: colour (dstw x 4 elements) and depth (dstw floats); either may be
 * null. 107 after the last line. */
VORA_API int ILreadzoom(ILzoom* zoom, void* colour, void* depth);
VORA_API int ILgetzoom(ILzoom* zoom, void** colour, void** depth);
VORA_API void ILdelzoom(ILzoom* zoom);
/* The zoom's output size (0 when unbound). */
VORA_API void ILgetzoomsize(ILzoom* zoom, int* width, int* height);
VORA_API ILzoom* ILgetimagezoom(ILimage* handle);

/* Filters: found by name as NAME.filter in the directories of VORA_FILTER_PATH (separated by
 * ':' or ';'), then in "filters" under the work directory (FLgetwork), then among the built-in
 * kernels. ILfilterwhy: why the last filter of this thread could not be loaded ("" if it could).
 * ILlistfilters calls each(name, radius, noclip, origin) for every filter found, the first one of
 * a name only; origin is a file path or "built-in". Returns the count. */
VORA_API const char* ILfilterwhy(void);
typedef void (*ILfiltereach)(const char* name, float radius, int noclip, const char* origin,
                             void* data);
VORA_API int ILlistfilters(ILfiltereach each, void* data);

/* ---- quick blur and transforms ------------------------------------------------------------ */
/* Blurs a width x height image of 4 bytes per pixel by percent of its size (0 or less: a copy). */
VORA_API int ILqblur(void* out, const void* in, int width, int height, float percent);
/* Complex DFT of n (a power of two) pairs of floats, real first, e^(+i 2 pi k j / n) kernel. */
VORA_API void ILqft(float* out, const float* in, int n);
/* In-place radix-2 transforms of n complex values copied from in to out and zero-padded to the
 * next power of two (out needs room for it). Forward angle step +2 pi / m, inverse -2 pi / m;
 * neither scales. Return the transform length in complex values. */
VORA_API int ILdfft1x(float* out, const float* in, int n);
VORA_API int ILifft1x(float* out, const float* in, int n);
/* Real transforms of n values padded to the next power of two N: out[0] = frequency 0,
 * out[1] = the Nyquist frequency, then re, im pairs; the inverse scales by 2 / N. Return N. */
VORA_API int ILdfft1f(float* out, const float* in, int n);
VORA_API int ILifft1f(float* out, const float* in, int n);

#ifdef __cplusplus
}
#endif

#endif
