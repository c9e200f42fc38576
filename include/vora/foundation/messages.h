// Foundation: the message catalogue and the error reporter.
#pragma once

#include <string>

#include <vora/export.h>

// A message key such as "s_TimageFileStrings.rImageFileOpenError", resolved through the built-in
// English catalogue. An unknown key resolves to the key itself, so nothing is ever lost.
class VORA_API TstringId {
 public:
  explicit TstringId(const char* key);
  const char* key() const { return key_; }
  const char* text() const;  // the catalogue text (printf-style %s/%d arguments)

 private:
  const char* key_;
};

// Catalogue lookup: null when the key is unknown.
VORA_API const char* voraCatalogueText(const char* key);

// The reporter that the library passes user messages to. theErrorHandler is null by default; vimg
// installs one that prints to stderr.
class VORA_API TerrorHandler {
 public:
  virtual ~TerrorHandler();
  virtual void reportError(const char* message) = 0;
  virtual void reportWarning(const char* message);  // default: reportError
};

VORA_API extern TerrorHandler* theErrorHandler;
// Formats with printf rules and hands the text to theErrorHandler, when one is installed.
VORA_API void reportErrorf(const char* format, ...) __attribute__((format(printf, 1, 2)));
