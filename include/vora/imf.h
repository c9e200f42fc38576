/* The IMF plug-in library (libvoraimf): image formats beyond the library's own come from format
 * plug-ins, shared libraries that this library registers, finds by key, and drives line by line.
 *
 * Writing a plug-in
 * -----------------
 * A plug-in is a shared library (.so, .dll) that exports
 *   - five data symbols, each a pointer to a NUL-terminated string, checked by the loader:
 *       const char* type = "image";  const char* program = "Ferrant";  const char* imageKey = "png";
 *       const char* imageExtension = "png";  const char* imageName = "PNG";
 *       const char* imageDescription = "Portable Network Graphics";   (the last three optional)
 *     imageExtension may list several, separated by spaces ("jp2 j2k"): each finds the format
 *     (IMF_find), and the first is the one that files written in it are named with.
 *   - one function, IMF_PLUGIN_ENTRY_SYMBOL, returning its table of entry points (IMF_plugin),
 *     whose first two fields are IMF_PLUGIN_ABI_VERSION and sizeof(IMF_plugin). A table of an
 *     earlier version (1: without the interleaved-pixel entries) is taken with the entry points it
 *     has; a table of a later version, or of a size that is not its version's, is refused whole.
 * Everything crosses the boundary as plain C: no exception may leave a plug-in, no allocation made
 * on one side is freed on the other (buffers are the caller's; plug-in handles are closed by the
 * plug-in's own close).
 *
 * Pictures cross as scan lines of planes: one buffer per channel, in the order colour (grey, or
 * red, green, blue), then matte, then depth, each holding the window's width of samples. Colour
 * and matte samples are of the record's colour type and bits: 8 (uint8_t), 16 (uint16_t) or
 * 32 (IMF_TYPE_INT: uint32_t; IMF_TYPE_FLOAT: float); depth samples of the depth type and bits.
 * Line 0 is the top line when topDown is set in the record, the bottom one otherwise.
 *
 * A plug-in whose codec takes or gives interleaved pixels may also take lines so (readPixels,
 * writePixels) in the layouts it names in pixelLayouts; callers use IMF_scan_read_pixels and
 * IMF_scan_write_pixels, which go through the planes for a plug-in without them. One frame's lines
 * are written in one layout, planes or pixels.
 */
#ifndef VORA_IMF_H
#define VORA_IMF_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#  if defined(VORA_BUILDING_IMF)
#    define IMF_API __declspec(dllexport)
#  else
#    define IMF_API __declspec(dllimport)
#  endif
#  define IMF_PLUGIN_EXPORT __declspec(dllexport)
#else
#  define IMF_API __attribute__((visibility("default")))
#  define IMF_PLUGIN_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define IMF_PLUGIN_ABI_VERSION 2
#define IMF_PLUGIN_ENTRY_SYMBOL "IMF_plugin_entry"

/* Sample types of the image record. */
enum { IMF_TYPE_INT = 1, IMF_TYPE_FLOAT = 2, IMF_TYPE_DOUBLE = 3 };

/* Plug-in and format capability flags. */
enum {
  IMF_CAN_READ = 1,
  IMF_MULTIFRAME = 2, /* several frames in one file */
  IMF_CAN_WRITE = 4
};

/* Scan orders a writer accepts: bottom line first, top line first. */
enum { IMF_ORDER_BOTTOM_UP = 1, IMF_ORDER_TOP_DOWN = 2 };

/* Layouts of a line of interleaved pixels (records without depth only):
 *   IMF_PIXELS_RECORD: the record's colour then matte samples per pixel, of its bits and type;
 *   IMF_PIXELS_BGRA8: 4 bytes a pixel, blue, green, red, matte, for records of 8-bit colour. Grey
 *     is written from green and read into all three; without a matte the fourth byte is ignored
 *     when writing and 255 when reading. */
enum { IMF_PIXELS_RECORD = 1, IMF_PIXELS_BGRA8 = 2 };

/* One frame of a file: its window, aspect and channels. */
typedef struct IMF_image {
  int32_t xMin, xMax, yMin, yMax; /* width = xMax - xMin + 1, height = yMax - yMin + 1 */
  int32_t aspectWidth, aspectHeight;
  float pixelAspect;
  int32_t colorChannels; /* 0 (no picture), 1 (grey) or 3 (red, green, blue) */
  int32_t colorBits;     /* 8, 16 or 32 */
  int32_t colorType;     /* IMF_TYPE_INT or IMF_TYPE_FLOAT (32 bits only) */
  int32_t matteChannels; /* 0 or 1; of the colour's bits and type */
  int32_t depthChannels; /* 0 or 1 */
  int32_t depthBits;     /* 32 */
  int32_t depthType;     /* IMF_TYPE_INT (uint32_t) or IMF_TYPE_FLOAT (float) */
  int32_t topDown;       /* 1: line 0 is the top line */
  int32_t frames;        /* frames in the file (1 for single-frame formats) */
} IMF_image;

/* Settings a writer may honour, as "name=value" texts ("quality=90", "compression=zip",
 * "DPI Resolution=300"); unknown names are ignored. */
typedef struct IMF_settings {
  const char* const* items;
  int32_t count;
} IMF_settings;

/* A plug-in's table of entry points. Every function reports failure by its result and may fill
 * error (errorSize bytes, NUL-terminated) with one line saying why. */
typedef struct IMF_plugin {
  uint32_t abiVersion; /* IMF_PLUGIN_ABI_VERSION */
  uint32_t size;       /* sizeof(IMF_plugin) */
  uint32_t flags;      /* IMF_CAN_READ | IMF_CAN_WRITE | IMF_MULTIFRAME */
  uint32_t bitsMask;   /* colour bits a writer takes: bit b - 1 for b bits */
  int32_t maxMatte;    /* matte channels a writer takes (0 or 1) */
  int32_t maxDepth;    /* depth channels a writer takes (0 or 1) */
  uint32_t depthMax;   /* largest integer depth value a writer keeps (0: float depth or none) */
  uint32_t scanOrders; /* IMF_ORDER_* a writer accepts */
  /* Nonzero when the first bytes of a file (n of them, n >= 64 unless the file is shorter) are
   * this format's. */
  int (*probe)(const unsigned char* head, size_t n);
  /* Opens a file for reading and describes its first frame; null on failure. */
  void* (*openRead)(const char* path, IMF_image* image, char* error, size_t errorSize);
  /* Creates a file for the frames described; null on failure. */
  void* (*openWrite)(const char* path, const IMF_image* image, const IMF_settings* settings, char* error,
                     size_t errorSize);
  /* Reading: moves to frame n (0-based) and describes it; writing: starts frame n. Returns n, or
   * -1. Null for single-frame formats. */
  int (*setFrame)(void* handle, int frame, IMF_image* image, char* error, size_t errorSize);
  /* Lines are read and written in order, line 0 first; 0 on success. */
  int (*readLine)(void* handle, int line, void* const* planes, char* error, size_t errorSize);
  int (*writeLine)(void* handle, int line, const void* const* planes, char* error, size_t errorSize);
  /* Finishes and frees the handle (a writer's file is complete only then); 0 on success. */
  int (*close)(void* handle, char* error, size_t errorSize);
  /* Version 2: lines as interleaved pixels, in the IMF_PIXELS_* layouts of pixelLayouts; called
   * only for those layouts and records without depth. Either may be null. */
  uint32_t pixelLayouts;
  int (*readPixels)(void* handle, int line, int layout, void* pixels, char* error, size_t errorSize);
  int (*writePixels)(void* handle, int line, int layout, const void* pixels, char* error, size_t errorSize);
} IMF_plugin;

/* The size of a version 1 table: the entry points up to close. */
#define IMF_PLUGIN_V1_SIZE offsetof(IMF_plugin, pixelLayouts)

typedef const IMF_plugin* (*IMF_plugin_entry_fn)(void);

/* A registered format. The loader reads name (byte 16), alphaCount (88), depthCount (96) and
 * flags (128) at fixed offsets, kept so by the padding below. */
typedef struct IMF_format {
  uint32_t abiVersion;
  uint32_t reserved0;
  const char* key;         /* 8 */
  const char* name;        /* 16 */
  const char* extension;   /* 24 */
  const char* description; /* 32 */
  const char* path;        /* 40: the plug-in file */
  const IMF_plugin* plugin;
  void* library;
  uint32_t bitsMask; /* 64 */
  uint32_t scanOrders;
  uint32_t depthMax;
  uint32_t reserved1[3];
  int32_t alphaCount; /* 88 */
  int32_t reserved2;
  int32_t depthCount; /* 96 */
  int32_t reserved3[7];
  uint32_t flags; /* 128: IMF_CAN_READ, IMF_MULTIFRAME (2), IMF_CAN_WRITE */
  uint32_t reserved4;
} IMF_format;

/* What IMF_open needs: the file, the format (key), and for writing the image and settings. */
typedef struct IMF_info {
  const char* name;     /* the file */
  const char* handle;   /* the file again, as callers name it */
  const char* key;      /* format key; null: detect from the file */
  const char* comment;  /* kept by formats that have comments */
  const char* program;  /* the writing program */
  const char* title;    /* the file name without its extension */
  int32_t count;        /* frames to write */
  IMF_image image;      /* writing: the picture to write */
  IMF_settings settings;
} IMF_info;

/* An open file: the image record of the current frame. */
typedef struct IMF_object {
  const IMF_format* format;
  IMF_image image;
  int32_t frame;
  int32_t writing;
  void* pluginHandle;
  char error[256]; /* why the last call failed */
} IMF_object;

/* Called by IMF_init until it returns 0: each call gives a loaded plug-in library (a handle
 * from dlopen or LoadLibrary) and its path, or two nulls to skip an entry. */
typedef int (*IMF_load_callback)(void** library, char** name);

/* Registers the plug-ins the callback hands over (a library already registered is skipped; the
 * first plug-in of a key wins). Returns 0, or -1 when callback is null. flags: reserved, 0. */
IMF_API int IMF_init(int flags, IMF_load_callback callback);
/* The format of a key (case-insensitive) or of a file extension; null when none. */
IMF_API const IMF_format* IMF_find(const char* name);
/* Registered formats in registration order; null past the end. */
IMF_API const IMF_format* IMF_format_at(int index);
/* Which messages the library prints to standard error: bit 0 plug-ins refused by IMF_init,
 * bit 1 failures of open, read, write and close. Returns the previous mask. */
IMF_API int ERR_mask_s(int mask);
/* Why the last IMF_init refused plug-ins, one line each ("path: reason"), until the next init. */
IMF_API int IMF_refused_count(void);
IMF_API const char* IMF_refused_at(int index);

IMF_API void IMF_info_init(IMF_info* info);
/* The key of the format that claims a file by its first bytes, or null. */
IMF_API const char* IMF_get_file_type(const char* name, int flags, IMF_info* info);
/* mode "r" or "w"; null on failure (IMF_last_error says why). */
IMF_API IMF_object* IMF_open(const IMF_info* info, const char* mode);
IMF_API const char* IMF_last_error(void);
/* Moves to frame n (reading) or begins frame n (writing); returns the frame set, or -1. */
IMF_API int IMF_set_frame(IMF_object* object, int frame);
/* Planes for one line of the object's image: colour, matte, depth (count in *planes_out). */
IMF_API void** IMF_chan_alloc(const IMF_image* image, int width, int* planes_out);
IMF_API void IMF_chan_free(void** planes);
IMF_API int IMF_scan_read(IMF_object* object, int line, void* const* planes);
/* The planes of a line joined into interleaved pixels (count samples of sampleBytes each per
 * pixel), and split back: what most codecs take and give. The line must not overlap a plane;
 * plane pointers may repeat when joining (grey into RGB). */
IMF_API void IMF_planes_join(const void* const* planes, int count, int sampleBytes, int width, void* line);
IMF_API void IMF_line_split(const void* line, int count, int sampleBytes, int width, void* const* planes);
IMF_API int IMF_scan_write(IMF_object* object, int line, const void* const* planes);
/* A line as interleaved pixels in an IMF_PIXELS_* layout (width times the layout's pixel bytes):
 * handed to the plug-in as they are when it takes the layout, else through planes. 0 on success. */
IMF_API int IMF_scan_read_pixels(IMF_object* object, int line, int layout, void* pixels);
IMF_API int IMF_scan_write_pixels(IMF_object* object, int line, int layout, const void* pixels);
/* Closes and frees the object; 0 on success. */
IMF_API int IMF_close(IMF_object* object);

#ifdef __cplusplus
}
#endif

#endif
