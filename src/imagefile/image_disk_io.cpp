// TimageDiskIO, the front end's writing of Timage pictures, and TimageFileSearchPath, the file an
// image name stands for (image_file_io.h).
#include <vora/image_file_io.h>

#include <cstring>
#include <filesystem>

namespace {

TimageFileSearchPath::TfieldType fieldType = TimageFileSearchPath::kFrames;
Tstring oddSuffix = ".o", evenSuffix = ".e";

bool isFile(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec);
}

}  // namespace

int TimageDiskIO::writeImage(const Timage& image) { return writeImageRegion(0, 0, int(image.width()), int(image.height()), image); }

int TimageDiskIO::writeImage(int x, int y, const Timage& image, int rows) {
  return writeImageRegion(x, y, int(image.width()) - x, rows, image);
}

// The lines go out whole and in order, at 8 bits: the region must span the file's width.
int TimageDiskIO::writeImageRegion(int x, int y, int width, int height, const Timage& image) {
  if (image.bytesPerChannel() != 1 || x < 0 || y < 0 || height < 0 || width != int(this->width()) ||
      int64_t(x) + width > int64_t(image.width()) || int64_t(y) + height > int64_t(image.height()))
    return -1;
  for (int r = y; r < y + height; ++r)
    if (writeLine(image.row(unsigned(r)) + size_t(x) * 4, nullptr) != 0) return -1;
  return 0;
}

void TimageFileSearchPath::initImageFileSearchPath(TfieldType field, const Tstring& odd, const Tstring& even, const Tstring&) {
  fieldType = field;
  oddSuffix = odd.str().empty() ? Tstring(".o") : odd;
  evenSuffix = even.str().empty() ? Tstring(".e") : even;
}

bool TimageFileSearchPath::exactImageName(const Tstring& name, Tstring& result, bool mustExist) {
  const std::string n = name.str();
  if (n.empty()) return false;
  std::vector<std::string> candidates = {n};
  if (fieldType == kOddField) candidates.push_back(n + oddSuffix.str());
  if (fieldType == kEvenField) candidates.push_back(n + evenSuffix.str());
  for (size_t i = 0, count = candidates.size(); i < count; ++i) candidates.push_back(candidates[i] + ".Z");
  TfilePath images;
  if (n[0] != '/' && TprojectManager::theManager().outputDir("images", images))
    for (size_t i = 0, count = candidates.size(); i < count; ++i) candidates.push_back(std::string(images.asChar()) + "/" + candidates[i]);
  for (const std::string& c : candidates)
    if (isFile(c)) return result = c, true;
  if (mustExist) return false;
  result = name;
  return true;
}

bool TimageFileSearchPath::expandImageName(const char* name, char* result, bool mustExist, char*) {
  Tstring found;
  if (!name || !result || !exactImageName(name, found, mustExist) || found.str().size() >= 1024) return false;
  memcpy(result, found.asChar(), found.str().size() + 1);
  return true;
}
