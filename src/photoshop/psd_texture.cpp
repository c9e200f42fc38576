// The texture facade and the document cache.
#include <vora/psd_texture.h>

#include <filesystem>

#include <vora/foundation/tfilestream.h>

namespace ktPhotoshop {

namespace {

Tstring fullName(const TfilePath& path) {
  std::error_code ec;
  std::filesystem::path p = std::filesystem::weakly_canonical(std::filesystem::absolute(path.asChar(), ec), ec);
  return Tstring(p.empty() ? std::string(path.asChar()) : p.string());
}

}  // namespace

TpsdFileCache* TpsdFileCache::fTheCache = nullptr;

TpsdFileCache& TpsdFileCache::theCache() {
  static TpsdFileCache cache;
  fTheCache = &cache;
  return cache;
}

int TpsdFileCache::addFile(const Tstring& fullPath, TphotoshopFile* doc) {
  if (entries_.count(fullPath)) return -1;
  entries_[fullPath] = Entry{std::shared_ptr<TphotoshopFile>(doc), TfileStream::modificationTime(fullPath.asChar())};
  return 0;
}

int TpsdFileCache::getFile(const Tstring& fullPath, TphotoshopFile*& out) {
  auto it = entries_.find(fullPath);
  if (it == entries_.end()) return -1;
  if (!(TfileStream::modificationTime(fullPath.asChar()) == it->second.modified)) {
    entries_.erase(it);  // a facade still holding the document keeps it alive
    return -1;
  }
  out = it->second.document.get();
  return 0;
}

std::shared_ptr<TphotoshopFile> TpsdFileCache::share(const Tstring& fullPath) {
  auto it = entries_.find(fullPath);
  return it == entries_.end() ? nullptr : it->second.document;
}

void TpsdFileCache::clear() { entries_.clear(); }

TpsdTextureFile::~TpsdTextureFile() {
  if (document_) close();
}

int TpsdTextureFile::open(const TfilePath& path, bool editMode) {
  cached_ = true, owned_ = false;
  TpsdFileCache& cache = TpsdFileCache::theCache();
  const Tstring name = fullName(path);
  TphotoshopFile* doc = nullptr;
  if (cache.getFile(name, doc) == 0) {
    document_ = cache.share(name);
    doc->setIsFileEditMode(editMode);
  } else {
    if (openPsdFile(path, doc, editMode) != kSuccess || !doc) return -1;
    if (cache.addFile(name, doc) != 0) {
      delete doc;
      return -1;
    }
    document_ = cache.share(name);
  }
  width_ = uint16_t(doc->imageWidth());
  height_ = uint16_t(doc->imageHeight());
  return 0;
}

int TpsdTextureFile::openWithoutCache(const TfilePath& path, bool editMode) {
  cached_ = owned_ = false;
  TphotoshopFile* doc = nullptr;
  if (openPsdFile(path, doc, editMode) != kSuccess || !doc) return -1;
  document_.reset(doc);
  return 0;
}

int TpsdTextureFile::close() {
  if (!document_) return -1;
  TphotoshopFile* doc = document_.get();
  if (!closePsdFile(doc)) return -1;
  document_.reset();  // a cached document stays with the cache; this facade's own one goes
  return 0;
}

int TpsdTextureFile::readPixels(TrgbaData& out) { return psd() ? psd()->readFlattenedImage(out, true) : -1; }

int TpsdTextureFile::readLayerSetPixels(const Tstring& setName, TrgbaData& out) {
  return psd() ? psd()->readLayerSetImage(setName, out) : -1;
}

int TpsdTextureFile::saveAs(const TfilePath& path, TCompressionMethod layerCompression) {
  return psd() && psd()->save(path, layerCompression) == 0 ? 0 : -1;
}

int TpsdTextureFile::layerNames(TstringArray& names) { return psd() ? psd()->getAllLayerNames(names) : -1; }
int TpsdTextureFile::layerSetNames(TstringArray& names) { return psd() ? psd()->readLayerSetNames(names) : -1; }

bool TpsdTextureFile::isFilePsd(const Tstring& path) { return ktPhotoshop::isFilePsd(TfilePath(path.str())); }

int TpsdTextureFile::allPsdFileWarnings(TstringArray& out) {
  for (const Tstring& m : TpsdFileWarning::instance().messages()) out.push_back(m);
  return 0;
}

bool TpsdTextureFile::isWarningSet(TpsdTextureFileWarning w) {
  const uint32_t bit = w == kEmptyLayerSetWarning ? uint32_t(TpsdFileWarning::rFileEmptyLayerSet) : 0u;
  return (TpsdFileWarning::instance().allBits() & bit) != 0;
}

int TpsdTextureFile::clearAllPsdWarnings() {
  TpsdFileWarning::instance().clear();
  return 0;
}

}  // namespace ktPhotoshop
