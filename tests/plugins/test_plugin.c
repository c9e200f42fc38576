/* A format plug-in built several times by the suite, each build changing one thing the loader
 * checks (TEST_TYPE, TEST_PROGRAM, TEST_KEY, TEST_ABI). Its format: "TST1", width and height as
 * little-endian 32-bit words, then 8-bit red, green, blue samples, top line first. With TEST_DEPTH
 * its writer also takes 31-bit integer depth, written after each pixel's colour (little-endian). */
#include <stdio.h>
#include <stdlib.h>
#include <stdint.h>
#include <string.h>

#include <vora/imf.h>

#ifndef TEST_TYPE
#define TEST_TYPE "image"
#endif
#ifndef TEST_PROGRAM
#define TEST_PROGRAM "Ferrant"
#endif
#ifndef TEST_KEY
#define TEST_KEY "tst"
#endif
/* A version 1 table: lines of pixels reach it through the library's planes. */
#ifndef TEST_ABI
#define TEST_ABI 1
#endif

IMF_PLUGIN_EXPORT const char* type = TEST_TYPE;
IMF_PLUGIN_EXPORT const char* program = TEST_PROGRAM;
IMF_PLUGIN_EXPORT const char* imageKey = TEST_KEY;
IMF_PLUGIN_EXPORT const char* imageExtension = "tst  tsx"; /* files are named .tst; .tsx finds it too */
IMF_PLUGIN_EXPORT const char* imageName = "Test";
IMF_PLUGIN_EXPORT const char* imageDescription = "the suite's test format";

typedef struct {
  FILE* f;
  unsigned w, h;
  int depth;
} File;

static unsigned le32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | (unsigned)p[3] << 24; }

/* The depth build writes the same format but claims no file: its files are read by the tests byte
 * by byte, and the plain build, loaded beside it in one process, keeps "TST1" to itself. */
static int probe(const unsigned char* head, size_t n) {
#ifdef TEST_DEPTH
  (void)head, (void)n;
  return 0;
#else
  return n >= 4 && memcmp(head, "TST1", 4) == 0;
#endif
}

static void* openRead(const char* path, IMF_image* image, char* error, size_t errorSize) {
  unsigned char head[12];
  File* t = calloc(1, sizeof *t);
  if (!t || !(t->f = fopen(path, "rb")) || fread(head, 1, 12, t->f) != 12 || !probe(head, 12)) {
    snprintf(error, errorSize, "not a test image");
    if (t && t->f) fclose(t->f);
    free(t);
    return NULL;
  }
  t->w = le32(head + 4), t->h = le32(head + 8);
  memset(image, 0, sizeof *image);
  image->xMax = (int)t->w - 1, image->yMax = (int)t->h - 1;
  image->colorChannels = 3, image->colorBits = 8, image->colorType = IMF_TYPE_INT;
  image->topDown = 1, image->frames = 1;
  return t;
}

static void* openWrite(const char* path, const IMF_image* image, const IMF_settings* settings, char* error,
                       size_t errorSize) {
  (void)settings;
  File* t = calloc(1, sizeof *t);
  unsigned char head[12] = {'T', 'S', 'T', '1'};
  if (!t || image->colorChannels != 3 || image->colorBits != 8 || !(t->f = fopen(path, "wb"))) {
    snprintf(error, errorSize, "cannot write this picture");
    free(t);
    return NULL;
  }
  t->w = (unsigned)(image->xMax - image->xMin + 1), t->h = (unsigned)(image->yMax - image->yMin + 1);
  t->depth = image->depthChannels == 1 && image->depthType == IMF_TYPE_INT;
  for (int i = 0; i < 4; ++i) head[4 + i] = (unsigned char)(t->w >> 8 * i), head[8 + i] = (unsigned char)(t->h >> 8 * i);
  fwrite(head, 1, 12, t->f);
  return t;
}

static int readLine(void* h, int line, void* const* planes, char* error, size_t errorSize) {
  File* t = h;
  (void)line;
  for (unsigned x = 0; x < t->w; ++x) {
    unsigned char rgb[3];
    if (fread(rgb, 1, 3, t->f) != 3) return snprintf(error, errorSize, "the file ends early"), -1;
    for (int c = 0; c < 3; ++c) ((unsigned char*)planes[c])[x] = rgb[c];
  }
  return 0;
}

static int writeLine(void* h, int line, const void* const* planes, char* error, size_t errorSize) {
  File* t = h;
  (void)line, (void)error, (void)errorSize;
  for (unsigned x = 0; x < t->w; ++x) {
    for (int c = 0; c < 3; ++c) fputc(((const unsigned char*)planes[c])[x], t->f);
    for (int i = 0; t->depth && i < 4; ++i) fputc((int)(((const uint32_t*)planes[3])[x] >> 8 * i) & 0xFF, t->f);
  }
  return 0;
}

static int closeFile(void* h, char* error, size_t errorSize) {
  File* t = h;
  int r = fclose(t->f);
  free(t);
  if (r) snprintf(error, errorSize, "cannot finish the file");
  return r ? -1 : 0;
}

#ifdef TEST_DEPTH
#define TEST_MAX_DEPTH 1, 0x80000000u
#else
#define TEST_MAX_DEPTH 0, 0
#endif
static const IMF_plugin table = {TEST_ABI, IMF_PLUGIN_V1_SIZE, IMF_CAN_READ | IMF_CAN_WRITE, 0x80, 0, TEST_MAX_DEPTH,
                                 IMF_ORDER_TOP_DOWN, probe, openRead, openWrite, NULL, readLine, writeLine, closeFile,
                                 0, NULL, NULL};

IMF_PLUGIN_EXPORT const IMF_plugin* IMF_plugin_entry(void) { return &table; }
