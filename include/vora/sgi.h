/* The SGI image file library: one row of one channel at a time, or the whole picture. Messages
 * go to theErrorHandler as "SGI image: " + text. readImageFromFile and writeImageToFile need the image
 * file front end and arrive with it. */
#ifndef VORA_SGI_H
#define VORA_SGI_H

#include <stddef.h>
#include <stdint.h>
#include <vora/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The open-image record, fields in the traditional order. Its first 176 bytes are the file header as
 * written (bytes 108 to 175 hold these in-memory fields; ignored on reading). */
typedef struct IMAGE {
  uint16_t imagic; /* 474 */
  uint16_t type;   /* high byte storage (0 verbatim, 1 RLE), low byte bytes per channel */
  uint16_t dim;
  uint16_t xsize, ysize, zsize;
  uint32_t min, max;
  uint32_t wastebytes;
  char name[80];
  uint32_t colormap;
  int32_t file; /* the operating-system file descriptor */
  uint16_t flags; /* 1 read, 2 write, 0x80 read/write (never set), 0x20 error */
  uint16_t dorev;
  uint16_t x, y, z;
  uint16_t cnt;
  uint16_t* ptr;
  uint16_t* base;
  uint16_t* tmpbuf;
  uint32_t offset;
  uint32_t rleend;
  uint32_t* rowstart;
  uint32_t* rowsize;
} IMAGE;

#define SGI_VERBATIM(bpc) (0x0000 | (bpc))
#define SGI_RLE(bpc) (0x0100 | (bpc))

VORA_API IMAGE* iopen(const char* file, const char* mode, unsigned type, unsigned dim,
                      unsigned xsize, unsigned ysize, unsigned zsize);
VORA_API int getrow(IMAGE* image, unsigned short* buffer, unsigned y, unsigned z);
VORA_API int putrow(IMAGE* image, const unsigned short* buffer, unsigned y, unsigned z);
VORA_API int iclose(IMAGE* image);
/* The whole picture at once, with the checks and messages of getrow and putrow: interleaved
 * pixels of zsize samples each (one byte, or two in the host's order for 2 bytes per channel),
 * rows top first (the file's last row first), rowBytes apart. 8-bit images of up to four channels
 * go a row of bytes at a time, without 16-bit values. 0, or -1 at the first row that fails. */
VORA_API int getpixels(IMAGE* image, void* pixels, size_t rowBytes);
VORA_API int putpixels(IMAGE* image, const void* pixels, size_t rowBytes);
/* Nonzero when the file begins with the SGI magic (01 DA). */
VORA_API int isFileSgi(const char* path);
/* Channel count and bytes per channel of the image, as the header's fields give them. */
#define SGI_STORAGE(image) ((image)->type >> 8)
#define SGI_BPC(image) ((image)->type & 0xFF)

/* The run-length packets of one row (exposed for tests and tools): rle_compact writes the packets
 * of cnt 16-bit values in obpp-byte units and returns the packet count including the final 0;
 * rle_expand expands packets of ibpp-byte units into at most cnt values of obpp bytes and returns
 * the values written, or 0 for unsupported widths and -1 when the packets overflow cnt or run
 * past inlen bytes. Byte values into bytes may change the buffer past the values written (never
 * past cnt). */
VORA_API int rle_compact(const unsigned short* expbuf, int ibpp, unsigned char* rlebuf, int obpp,
                         int cnt);
VORA_API int rle_expand(const unsigned char* rlebuf, int ibpp, unsigned short* expbuf, int obpp,
                        int cnt, int inlen);

#ifdef __cplusplus
}
#endif

#endif
