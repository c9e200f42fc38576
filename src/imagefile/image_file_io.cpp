// TimageFileIO: a rendered frame written under its name, with mask and depth files where the
// format holds neither; the project's directories and the texts a frame records (image_file_io.h).
#include <vora/image_file_io.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

#include <vora/foundation/env.h>
#include <vora/imf.h>
#include <vora/plugins.h>

#include "platform/platform.h"

const char* gCutIdentifier = "voraimage " VORA_VERSION;

namespace {

struct TypeRow {
  int type;
  const char* extension;
  const char* plugin;  // "" for the native file
  bool alpha, depth;
};

// Fixed answers, whatever the files themselves could carry: they alone decide the extra files.
const TypeRow kTypes[] = {
    {0, "gif", "gif", true, false},    {1, "pic", "si", true, false},     {2, "rla", "rla", true, true},
    {3, "tif", "tif", true, false},    {4, "tif", "tif", true, false},    {5, "sgi", "sgi", true, false},
    {6, "qvx", "qvx", false, false},   {7, "iff", "", true, true},        {8, "jpg", "jpg", true, false},
    {9, "eps", "eps", false, false},   {10, "iff", "", true, true},       {11, "cin", "cin", true, false},
    {12, "yuv", "yuv", true, false},   {19, "tga", "tga", false, false},  {20, "bmp", "bmp", false, false},
    {21, "mv", "sgimv", false, false}, {22, "qt", "qt", false, false},    {23, "avi", "avi", false, false},
    {30, "pntg", "pntg", false, false}, {31, "psd", "psd", false, false}, {32, "png", "png", false, false},
    {33, "pict", "pict", false, false}, {34, "qtif", "qtif", false, false}, {35, "dds", "dds", false, false},
};

const TypeRow* rowOf(int type) {
  for (const TypeRow& r : kTypes)
    if (r.type == type) return &r;
  return nullptr;  // the native file
}

std::mutex commandLineLock;
Tstring& commandLine() {
  static Tstring line;
  return line;
}

}  // namespace

TprojectManager& TprojectManager::theManager() {
  static TprojectManager manager;
  return manager;
}

void TprojectManager::setOutputDir(const Tstring& rule, const TfilePath& dir) {
  for (auto& [r, d] : dirs_)
    if (r == rule) return void(d = dir);
  dirs_.emplace_back(rule, dir);
}

bool TprojectManager::outputDir(const Tstring& rule, TfilePath& dir) const {
  if (rule.str().empty()) return false;
  for (const auto& [r, d] : dirs_)
    if (r == rule) return dir = d, true;
  std::string root = root_.asChar();
  if (root.empty()) root = VoraGetEnv("VORA_PROJECT") ? VoraGetEnv("VORA_PROJECT") : vora::platform::currentDirectory();
  dir = TfilePath(root + "/" + rule.str());
  return true;
}

bool TprojectManager::makeDir(const TfilePath& dir) {
  std::error_code ec;
  std::filesystem::create_directories(dir.asChar(), ec);
  return std::filesystem::is_directory(dir.asChar(), ec);
}

const Tstring& TbatchGlobals::getCommandLine() {
  std::lock_guard<std::mutex> g(commandLineLock);
  return commandLine();
}

void TbatchGlobals::setCommandLine(const Tstring& line) {
  std::lock_guard<std::mutex> g(commandLineLock);
  commandLine() = line;
}

TimageFileIO::~TimageFileIO() = default;

void TimageFileIO::setFormat(TimageType type, int data, const Tstring& pluginName, const Tstring& extension) {
  type_ = type, data_ = data, pluginName_ = pluginName, extension_ = extension;
}

Tstring TimageFileIO::formatExtension(TimageType type) const {
  if (type == kPlugin) return extension_;
  const TypeRow* r = rowOf(type);
  return r ? r->extension : "iff";
}

Tstring TimageFileIO::formatPluginName(TimageType type) const {
  if (type == kPlugin) return pluginName_;
  const TypeRow* r = rowOf(type);
  return r ? r->plugin : "";
}

bool TimageFileIO::formatHoldsAlpha(TimageType type) const {
  if (type == kPlugin) return loadImfPlugins(), IMF_find(pluginName_) && formatSupportsAlpha(pluginName_);
  const TypeRow* r = rowOf(type);
  return r ? r->alpha : true;
}

bool TimageFileIO::formatHoldsDepth(TimageType type) const {
  if (type == kPlugin) return loadImfPlugins(), IMF_find(pluginName_) && formatSupportsDepth(pluginName_);
  const TypeRow* r = rowOf(type);
  return r ? r->depth : true;
}

namespace {

Tstring formatName(const TimageFN& fn, const Tstring& ext, bool glance) {
  if (fn.base.str().empty()) return Tstring();
  static const char* names[7] = {"%s", "%s.%u", "%s.%s.%u", "%s.%u.%s", "%s.%04u", "%s.%s.%04u", "%s.%04u.%s"};
  // The viewer's patterns: '@' an unpadded frame, '#' a padded digit; 1 and 2 deliberately have no
  // frame in them.
  static const char* glances[7] = {"%s", "%s", "%s.%s", "%s.@.%s", "%s.####", "%s.%s.####", "%s.####.%s"};
  const int c = fn.convention >= 0 && fn.convention <= 6 ? fn.convention : 0;
  const char *b = fn.base.asChar(), *e = ext.asChar();
  char out[4096];
  if (glance) {
    if (c == 0 || c == 1 || c == 4) snprintf(out, sizeof out, glances[c], b);
    else snprintf(out, sizeof out, glances[c], b, e);
  } else if (c == 0) {
    snprintf(out, sizeof out, "%s", b);
  } else if (c == 1 || c == 4) {
    snprintf(out, sizeof out, names[c], b, fn.frame);
  } else if (c == 2 || c == 5) {
    snprintf(out, sizeof out, names[c], b, e, fn.frame);
  } else {
    snprintf(out, sizeof out, names[c], b, fn.frame, e);
  }
  return out;
}

}  // namespace

Tstring TimageFileIO::makeName(const TimageFN& fn, TimageType type) const { return formatName(fn, formatExtension(type), false); }

Tstring TimageFileIO::makeGlanceName(TimageFN& fn, const Tstring& extension) { return formatName(fn, extension, true); }

Tstring TimageFileIO::makeGlanceName(TimageFN& fn, TimageType type) {
  const TypeRow* r = rowOf(type);
  return makeGlanceName(fn, r ? r->extension : "iff");
}

Tstring TimageFileIO::makeGlanceName(TimageFN& fn, TimageType type, const Tstring& extension) {
  return type == kPlugin ? makeGlanceName(fn, extension) : makeGlanceName(fn, type);
}

bool TimageFileIO::create(const TimageFN& name, unsigned short width, unsigned short height) {
  mainFn_ = maskFn_ = depthFn_ = name;
  maskFn_.base += "_mask";
  depthFn_.base += "_depth";
  TprojectManager& pm = TprojectManager::theManager();
  if (!pm.outputDir("images", imagesDir_) || !pm.outputDir("mask", maskDir_) || !pm.outputDir("depth", depthDir_))
    return false;
  holdsAlpha_ = formatHoldsAlpha(type_), holdsDepth_ = formatHoldsDepth(type_);
  const Tstring plugin = formatPluginName(type_);
  mainPath_ = Tstring(imagesDir_.asChar()) + "/" + makeName(mainFn_, type_);
  if (!TprojectManager::makeDir(imagesDir_) || main_.create(mainPath_, width, height, TiffImageFile::kRle, plugin.str().empty() ? nullptr : plugin.asChar()) != 0)
    return false;
  main_.setType(((data_ & kColour) ? IL_COLOR : 0) | ((data_ & kAlpha) && holdsAlpha_ ? IL_ALPHA : 0) |
                ((data_ & kDepth) && holdsDepth_ ? IL_ZBUFFER : 0));
  auto extra = [&](TimageFile& f, const TfilePath& dir, const TimageFN& fn, Tstring& path, TiffImageFile::TfileCompression c, int type) {
    path = Tstring(dir.asChar()) + "/" + makeName(fn, kIff);
    if (!TprojectManager::makeDir(dir) || f.create(path, width, height, c, nullptr) != 0) return false;
    f.setType(type);
    return true;
  };
  maskOpen_ = (data_ & kAlpha) && !holdsAlpha_;
  depthOpen_ = (data_ & kDepth) && !holdsDepth_;
  if ((maskOpen_ && !extra(mask_, maskDir_, maskFn_, maskPath_, TiffImageFile::kRle, IL_ALPHA)) ||
      (depthOpen_ && !extra(depth_, depthDir_, depthFn_, depthPath_, TiffImageFile::kNoCompression, IL_ZBUFFER))) {
    main_.close(), mask_.close(), depth_.close();
    maskOpen_ = depthOpen_ = false;
    return false;
  }
  return true;
}

bool TimageFileIO::writeImage(void* pixels, float* depth) {
  main_.save(pixels, depth, 0);
  if (maskOpen_) mask_.save(pixels, nullptr, 0);
  if (depthOpen_) depth_.save(nullptr, depth, 0);
  return true;
}

void TimageFileIO::writeClippingPlanes(float nearPlane, float farPlane) {
  near_ = nearPlane, far_ = farPlane, clipPending_ = true;
}

void TimageFileIO::writeEyeWidthHeight(float width, float height) {
  eyeWidth_ = width, eyeHeight_ = height, eyePending_ = true;
}

// The frame's records, after its pixels: floats big-endian as every number of the format.
void TimageFileIO::putChunks(TimageFile& f) {
  if (!f.isActive()) return;
  auto floats = [&f](TiffTag tag, float a, float b) {
    uint8_t bytes[8];
    for (int i = 0; i < 2; ++i) {
      uint32_t v;
      memcpy(&v, i ? &b : &a, 4);
      for (int k = 0; k < 4; ++k) bytes[i * 4 + k] = uint8_t(v >> (24 - 8 * k));
    }
    f.beginPut(tag), f.put(bytes, 8), f.endPut();
  };
  auto text = [&f](TiffTag tag, const std::string& s) { f.beginPut(tag), f.put(s.data(), s.size()), f.endPut(); };
  if (clipPending_) floats(TiffTag('C', 'L', 'P', 'Z'), near_, far_);
  if (eyePending_) floats(TiffTag('E', 'S', 'X', 'Y'), eyeWidth_, eyeHeight_);
  text(TiffTag('H', 'I', 'S', 'T'), TbatchGlobals::getCommandLine().str());
  text(TiffTag('V', 'E', 'R', 'S'), std::string("Vora cut ") + gCutIdentifier);
}

bool TimageFileIO::close() {
  putChunks(main_);
  if (depthOpen_) putChunks(depth_);
  clipPending_ = eyePending_ = false;
  const bool ok = main_.close() == 0;
  if (maskOpen_) mask_.close();
  if (depthOpen_) depth_.close();
  maskOpen_ = depthOpen_ = false;
  return ok;
}

bool TimageFileIO::open(const Tstring& name) { return main_.identifyAndOpen(name) == 0; }
