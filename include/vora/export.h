/* Export macros: every public function and class of libvoraimage carries VORA_API. */
#ifndef VORA_EXPORT_H
#define VORA_EXPORT_H

#if defined(_WIN32)
#  if defined(VORA_BUILDING_LIBRARY)
#    define VORA_API __declspec(dllexport)
#  else
#    define VORA_API __declspec(dllimport)
#  endif
#else
#  define VORA_API __attribute__((visibility("default")))
#endif

/* The same for libvoraimage_hdr, the HDR readers built beside the library. */
#if defined(_WIN32)
#  if defined(VORA_BUILDING_HDR)
#    define VORA_HDR_API __declspec(dllexport)
#  else
#    define VORA_HDR_API __declspec(dllimport)
#  endif
#else
#  define VORA_HDR_API __attribute__((visibility("default")))
#endif

#endif
