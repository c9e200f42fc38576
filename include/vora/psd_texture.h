// Photoshop documents as textures: TpsdTextureFile opens documents through one process-wide cache
// (TpsdFileCache), keyed by full path and checked against the file's modification time.
#pragma once

#include <map>
#include <memory>

#include <vora/export.h>
#include <vora/foundation/ttime.h>
#include <vora/photoshop.h>

namespace ktPhotoshop {

// Documents stay shared: one still held by a facade lives on when the cache drops its entry (the
// file changed, or clear()), and is freed with its last holder.
class VORA_API TpsdFileCache {
 public:
  static TpsdFileCache& theCache();
  // Takes doc; -1 (doc untouched, still the caller's) when the path is already cached.
  int addFile(const Tstring& fullPath, TphotoshopFile* doc);
  // 0 with the cached document when the file is unchanged since it was added; -1 when absent,
  // or when it changed (the entry is dropped).
  int getFile(const Tstring& fullPath, TphotoshopFile*& out);
  void clear();
  // The shared document of an entry (what facades hold), or null.
  std::shared_ptr<TphotoshopFile> share(const Tstring& fullPath);
  size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    std::shared_ptr<TphotoshopFile> document;
    Ttime modified;
  };
  std::map<Tstring, Entry> entries_;
  static TpsdFileCache* fTheCache;
};

enum TpsdTextureFileWarning : int { kEmptyLayerSetWarning = 0 };

class VORA_API TpsdTextureFile {
 public:
  TpsdTextureFile() = default;
  ~TpsdTextureFile();
  TpsdTextureFile(const TpsdTextureFile&) = delete;
  TpsdTextureFile& operator=(const TpsdTextureFile&) = delete;

  // Through the cache: a document read before and unchanged since is handed out again. 0 or -1.
  int open(const TfilePath& path, bool editMode);
  // Read anew and owned by this facade alone (width and height are not copied).
  int openWithoutCache(const TfilePath& path, bool editMode);
  // closePsdFile on the document; a cached document stays in the cache. 0, or -1.
  int close();

  TphotoshopFile* document() const { return document_.get(); }
  uint16_t resolutionX() const { return width_; }
  uint16_t resolutionY() const { return height_; }
  void setResolutionX(uint16_t v) { width_ = v; }
  void setResolutionY(uint16_t v) { height_ = v; }

  // The document's layers composited (or one set's); 0 or -1.
  int readPixels(TrgbaData& out);
  int readLayerSetPixels(const Tstring& setName, TrgbaData& out);
  int layerNames(TstringArray& names);
  int layerSetNames(TstringArray& names);
  // Writes the document (savePsdFile) to path, or to its own path when path is empty. 0 or -1.
  int saveAs(const TfilePath& path);

  static bool isFilePsd(const Tstring& path);
  static int allPsdFileWarnings(TstringArray& out);
  // Only the empty-layer-set warning can be asked for; any other value answers false.
  static bool isWarningSet(TpsdTextureFileWarning w);
  static int clearAllPsdWarnings();

 private:
  TpsdFile* psd() const { return dynamic_cast<TpsdFile*>(document_.get()); }
  std::shared_ptr<TphotoshopFile> document_;
  uint16_t width_ = 0, height_ = 0;
  bool cached_ = false, owned_ = false;
};

}  // namespace ktPhotoshop
