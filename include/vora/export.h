/* Export macro of libvoraimage: every public function and class carries VORA_API. */
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

#endif
