// Photoshop documents as textures: TpsdTextureFile opens documents through one process-wide cache
// (TpsdFileCache), keyed by full path and checked against the file's modification time.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include <vora/export.h>
#include <vora/foundation/pixelmap.h>
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
  // The document's layer records, and with them every layer's channel data. 0 or -1.
  int readAllLayersInformation();
  int readAllChannelData();
  // One layer's stored samples (no opacity, mask or blend mode applied) placed in the document,
  // transparent around them, or at the layer's own rectangle. 0 or -1.
  int readPixels(const Tstring& layerName, TrgbaData& out);
  int readLayerPixels(const Tstring& layerName, TrgbaData& out);
  // Red, green, blue, alpha samples interleaved, top row first, for the composited layers or one
  // layer placed in the document (width x height x 4). 8-bit samples widen by 257; 16-bit ones
  // narrow to their high byte. 0 or -1.
  int readPixels8(std::vector<uint8_t>& rgba);
  int readPixels16(std::vector<uint16_t>& rgba);
  int readPixels8Layer(const Tstring& layerName, std::vector<uint8_t>& rgba);
  int readPixels16Layer(const Tstring& layerName, std::vector<uint16_t>& rgba);
  // The same as the library's pictures hold them: blue, green, red, alpha bytes, bottom row first.
  int readPixelMap(TpixelMap& out);
  int readPixelMap(const Tstring& layerName, TpixelMap& out);
  // The names of the alpha channels stored with the composite, and one of them by name: as
  // one-channel TrgbaData, as samples (width x height, top row first), or as an opaque grey
  // picture. 0 or -1.
  int alphaList(TstringArray& names);
  int readAlphaChannel(const Tstring& name, TrgbaData& out);
  int readAlphaChannel8(const Tstring& name, std::vector<uint8_t>& samples);
  int readAlphaChannel16(const Tstring& name, std::vector<uint16_t>& samples);
  int readAlphaChannelPixMap(const Tstring& name, TpixelMap& out);
  // Writes the document to path, or to its own path when path is empty, its layers' channels by
  // layerCompression. 0 or -1.
  int saveAs(const TfilePath& path, TCompressionMethod layerCompression = RLE);

  // Building a new document: create, then layers on top of the ones before (or on top inside a
  // set), alpha channels, then saveAs or close. Documents read from files are not edited here
  // (their queries read the file again): these answer -1 for them, and for names not found.
  // Layer pixels hold channels 0-2 (0 alone for grey) and -1 for transparency, top row first;
  // an alpha channel is document-sized, in channel 0.
  int create(const TfilePath& path, uint16_t width, uint16_t height, unsigned depth = 8, bool grey = false);
  int createLayer(const Tstring& name, int32_t left, int32_t top, TpixelData16 pixels);
  int createLayerSet(const Tstring& name);
  int addNewLayerToSet(const Tstring& setName, const Tstring& name, int32_t left, int32_t top, TpixelData16 pixels);
  // Replaces a layer's samples; its rectangle follows their size.
  int writePixels(const Tstring& layerName, TpixelData16 pixels);
  // A set goes with the layers inside it.
  int deleteLayer(const Tstring& name);
  int setLayerOpacity(const Tstring& name, uint8_t opacity);
  // blendKey: the file's four characters ('mul ', see fourCC).
  int setBlendModeToLayer(const Tstring& name, uint32_t blendKey);
  int createChannel(const Tstring& name, TpixelData16 samples);
  int deleteChannel(const Tstring& name);

  static bool isFilePsd(const Tstring& path);
  static int allPsdFileWarnings(TstringArray& out);
  // Only the empty-layer-set warning can be asked for; any other value answers false.
  static bool isWarningSet(TpsdTextureFileWarning w);
  static int clearAllPsdWarnings();

 private:
  TpsdFile* psd() const { return dynamic_cast<TpsdFile*>(document_.get()); }
  // The document when it was built here (create), else null.
  TpsdFile* built() const { return psd() && psd()->isCreated() ? psd() : nullptr; }
  // The index of the layer or set record of that name (first from the bottom), or -1.
  long indexOf(const Tstring& name) const;
  std::shared_ptr<TphotoshopFile> document_;
  uint16_t width_ = 0, height_ = 0;
  bool cached_ = false, owned_ = false;
};

}  // namespace ktPhotoshop
