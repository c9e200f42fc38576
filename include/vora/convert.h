// Conversion between native image files and the formats of the plug-ins: ifftoany writes a native
// file out in a plug-in's format (successive calls with one key add frames to a multi-frame file
// until ifftoanyClose), anytoiff reads any plug-in format (or a Photoshop document) into a native
// file, identify and getResolution look at a file. Failures return -1 (null for identify) with
// one line to the error handler, or standard error when none is installed. The open files are
// process-wide: conversions must not run on several threads at once.
#pragma once

#include <vora/export.h>
#include <vora/imf.h>

extern "C" {
// 0 when ifftoany can write this key; -1 for an empty or unknown key ("gif" and "psd" are always
// known).
VORA_API int ifftoanyInit(const char* input, const char* key);
// "psd" writes a one-layer Photoshop document of the picture (input: any file the image front
// end reads); "gif" quantises to a 6 x 6 x 6 colour cube first. 0 or -1.
VORA_API int ifftoany(const char* input, const char* output, const char* key);
// Finishes every multi-frame output left open. Always 0.
VORA_API int ifftoanyClose(void);
// key: the input's format key, or null to detect it from the file's bytes. frame: the frame of a
// multi-frame input (the input stays open for the next frame until another file is named).
VORA_API int anytoiff(const char* input, const char* output, const char* key, int frame);
// The key of the plug-in that claims the file; "__none_" when none does; null when the file
// cannot be read.
VORA_API const char* identify(const char* name);
VORA_API int getResolution(const char* name, int* width, int* height);
}

// The colour bits a writer of the format gets for samples of `bits`: those when it takes them,
// else the next larger it takes, else the largest smaller; 0 when it takes none.
VORA_API int imfOutputBits(const IMF_format* format, int bits);
