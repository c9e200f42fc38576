// TpsdFileWarning, the process-wide collector of the document warnings.
#include <vora/foundation/messages.h>
#include <vora/photoshop.h>

namespace ktPhotoshop {

Tstring fourCCText(uint32_t key) {
  char s[5];
  for (int i = 0; i < 4; ++i) {
    char c = char(key >> (24 - 8 * i));
    s[i] = c >= 32 && c < 127 ? c : '.';
  }
  s[4] = 0;
  return Tstring(s);
}

TpsdFileWarning::TpsdFileWarning() {
  static const char* const names[] = {
      "rFileBitmapColorMode",       "rFileGrayscaleColorMode",    "rFileIndexedColorMode",
      "rFileCMYKcolorMode",         "rFileMultiChannelColorMode", "rFileDuotoneColorMode",
      "rFileLabColorMode",          "rFileImageResources",        "rFileBlendMode",
      "rFileClipping",              "rFileBlendingRanges",        "rFileLayerEffects",
      "rFileTransparencyShapeLayer", "rFileLayerMaskAsGlobal",    "rFileVectorMaskAsGlobal",
      "rFileAdjustmentLayer",       "rFileObjectBasedEffects",    "rFilePatterns",
      "rFileAnnotations",           "rFileBlendClippingElements", "rFileBlendInteriorEffects",
      "rFileKnockoutOptions",       "rFileEmptyLayerSet",         "rFileNoMemoryPSDfile"};
  static std::vector<std::string> keys;  // the keys live as long as the process
  if (keys.empty())
    for (const char* n : names) keys.push_back(std::string("s_TpsdFileWarningStrings.") + n);
  for (size_t i = 0; i < keys.size(); ++i) keys_.emplace_back(uint32_t(1) << i, keys[i].c_str());
}

TpsdFileWarning& TpsdFileWarning::instance() {
  static TpsdFileWarning collector;
  return collector;
}

const char* TpsdFileWarning::key(TpsdWarningMsg bit) const {
  for (const auto& k : keys_)
    if (k.first == bit) return k.second;
  return nullptr;
}

namespace {

// Texts are formatted with %s arguments; substituting them here keeps a text with more
// %s than arguments (a name-less warning) well defined: missing arguments read as "".
Tstring formatArgs(const char* text, const Tstring* args, size_t count) {
  std::string out;
  size_t next = 0;
  for (const char* p = text; *p; ++p) {
    if (p[0] == '%' && p[1] == 's') {
      if (next < count) out += args[next].str();
      ++next, ++p;
    } else if (p[0] == '%' && p[1] == '%') {
      out += '%', ++p;
    } else {
      out += *p;
    }
  }
  return Tstring(out);
}

}  // namespace

void TpsdFileWarning::addWarning(TpsdWarningMsg bit, const Tstring& layerName, const Tstring& fileBaseName) {
  const char* k = key(bit);
  if (!k) return;
  const char* text = TstringId(k).text();
  if (layerName.isEmpty()) {
    messages_.push_back(formatArgs(text, &fileBaseName, 1));
  } else {
    const Tstring args[2] = {layerName, fileBaseName};
    messages_.push_back(formatArgs(text, args, 2));
  }
  bits_.push_back(bit);
}

uint32_t TpsdFileWarning::allBits() const {
  uint32_t all = 0;
  for (uint32_t b : bits_) all |= b;
  return all;
}

void TpsdFileWarning::clear() {
  messages_.clear();
  bits_.clear();
}

}  // namespace ktPhotoshop
