// Foundation: TfilePath, a file's path, and TmemoryException, what
// the foundation throws when memory runs out (or an allocation passes FLallocok's limit).
#pragma once

#include <new>
#include <string>

#include <vora/export.h>
#include <vora/foundation/tstring.h>

class VORA_API TfilePath {
 public:
  TfilePath() = default;
  TfilePath(const char* path) : path_(path ? path : "") {}  // implicit, so that names pass as text
  TfilePath(const Tstring& path) : path_(path.str()) {}
  TfilePath(std::string path) : path_(std::move(path)) {}

  const char* asChar() const { return path_.c_str(); }
  bool isEmpty() const { return path_.empty(); }
  // The last component, extension kept ("shot.psd" for "/a/b/shot.psd"): what warnings name.
  Tstring baseName() const;

 private:
  std::string path_;
};

class VORA_API TmemoryException : public std::bad_alloc {
 public:
  const char* what() const noexcept override;
  // Throws when bytes may not be allocated (over VORA_MAX_ALLOC_MB, see FLallocok).
  static void checkAllocation(unsigned long long bytes);
};
