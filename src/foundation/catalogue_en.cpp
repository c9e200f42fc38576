// Foundation: the built-in English message catalogue.
// Texts are English; keys are the catalogue's stable names. FL and IL error codes are "s_FLStrings.rErrorN".
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include <vora/foundation/messages.h>

namespace {

struct Entry {
  const char* key;
  const char* text;
};

const Entry kCatalogue[] = {
    // foundation (fl.h)
    {"s_FLStrings.rError0", "no error"},
    {"s_FLStrings.rError1", "end of group"},
    {"s_FLStrings.rError2", "done"},
    {"s_FLStrings.rError3", "out of memory"},
    {"s_FLStrings.rError4", "the file cannot be opened"},
    {"s_FLStrings.rError5", "read error"},
    {"s_FLStrings.rError6", "write error"},
    {"s_FLStrings.rError7", "the stream cannot seek"},
    {"s_FLStrings.rError9", "unexpected end of data"},
    {"s_FLStrings.rError11", "a chunk or group size runs past its group or the file"},
    {"s_FLStrings.rError12", "not an IFF file"},
    {"s_FLStrings.rError13", "a group is aligned more loosely than its parent"},
    {"s_FLStrings.rError14", "groups are nested too deep"},
    {"s_FLStrings.rError15", "chunk-file call out of sequence"},
    {"s_FLStrings.rError16", "no accepted form before the end of the data"},
    {"s_FLStrings.rError22", "an image in a 2-byte aligned FORM group"},
    {"s_FLStrings.rError23", "packed data overruns its tile"},
    {"s_FLStrings.rError24", "operation not allowed in this stream's mode"},
    {"s_FLStrings.rError40", "filter program not found"},
    {"s_FLStrings.rError43", "command not found"},
    {"s_FLStrings.rError44", "the command could not be started"},
    {"s_FLStrings.rError45", "the command failed"},
    {"s_FLStrings.rError46", "not supported by this build"},
    {"s_FLStrings.rError47", "form accepted"},
    // image library
    {"s_FLStrings.rError100", "not a native image file"},
    {"s_FLStrings.rError101", "image file structure is damaged, or no further image"},
    {"s_FLStrings.rError102", "the image conversion program could not be started"},
    {"s_FLStrings.rError103", "the image header is already written or read"},
    {"s_FLStrings.rError104", "no image header before the end of the image"},
    {"s_FLStrings.rError105", "the image header chunk cannot be read"},
    {"s_FLStrings.rError106", "image or tile size out of range"},
    {"s_FLStrings.rError107", "image data already finished"},
    {"s_FLStrings.rError108", "no packer or unpacker for the image's compression"},
    {"s_FLStrings.rError109", "tile rectangle outside the image"},
    {"s_FLStrings.rError110", "image too large for the memory limit, or for what the file can hold"},
    {"s_FLStrings.rError111", "image conversion program missing, or output conversion failed"},
    {"s_FLStrings.rError112", "resampling filter program not found"},
    // movies
    // the image file front end (image_file.h): keys with "added" texts get the name appended
    {"s_TimageFileStrings.rImageFileIdentifyError", "the format plug-ins could not identify the image file"},
    {"s_TimageFileStrings.rImageFileOpenError", "cannot open an image file: no name, or one is open already"},
    {"s_TimageFileStrings.rImageFileOpenFailed", "cannot open the image file "},
    {"s_TimageFileStrings.rImageFileCorruptError", "the image file is corrupt (impossible size): "},
    {"s_TimageFileStrings.rImageFileImageConversion", "the format plug-ins could not convert the image file"},
    {"s_TimageFileStrings.rImageFileLoadError1", "%s: the image has no colour channels to read"},
    {"s_TimageFileStrings.rImageFileLoadError2", "%s: the image cannot be read at 8 bits a channel"},
    {"s_TimageFileStrings.rImageFileLoadError3", "%s: the pixels cannot be read: %s"},
    {"s_TimageFileStrings.rSGIFileLoadError", "%s: the rows of the SGI image cannot be read"},
    {"s_TimageFileStrings.rImageFileWriteFailed", "cannot open the image file for writing: "},
    {"s_TimageFileStrings.rImageFileENV", "VORA_LOCATION is not set: the format plug-ins cannot be listed"},
    {"s_TimageFileStrings.rImageFilePluginPath", "cannot list the format plug-in directory "},
    {"s_TimageFileStrings.rImageFileReadFailFmt", "%s: the image cannot be read"},
    {"s_TmovieStrings.rUnableToCreateStream", "unable to create the video stream"},
    {"s_TmovieStrings.rUnableToCreateAudioStream", "unable to create the audio stream"},
    // Photoshop document warnings: (layer name, file base name), or (file base name) alone
    {"s_TpsdFileWarningStrings.rFileBitmapColorMode", "%s: bitmap colour mode is not supported"},
    {"s_TpsdFileWarningStrings.rFileGrayscaleColorMode", "%s: grayscale documents are read as their stored channel"},
    {"s_TpsdFileWarningStrings.rFileIndexedColorMode", "%s: indexed colour mode is not supported"},
    {"s_TpsdFileWarningStrings.rFileCMYKcolorMode", "%s: CMYK colour mode is not supported; channels are read as stored"},
    {"s_TpsdFileWarningStrings.rFileMultiChannelColorMode", "%s: multichannel colour mode is not supported"},
    {"s_TpsdFileWarningStrings.rFileDuotoneColorMode", "%s: duotone colour mode is not supported"},
    {"s_TpsdFileWarningStrings.rFileLabColorMode", "%s: Lab colour mode is not supported"},
    {"s_TpsdFileWarningStrings.rFileImageResources", "layer \"%s\" of %s: image resources are ignored"},
    {"s_TpsdFileWarningStrings.rFileBlendMode", "layer \"%s\" of %s: blend mode not supported, normal used"},
    {"s_TpsdFileWarningStrings.rFileClipping", "layer \"%s\" of %s: clipping is ignored"},
    {"s_TpsdFileWarningStrings.rFileBlendingRanges", "layer \"%s\" of %s: blending ranges are ignored"},
    {"s_TpsdFileWarningStrings.rFileLayerEffects", "layer \"%s\" of %s: layer effects are ignored"},
    {"s_TpsdFileWarningStrings.rFileTransparencyShapeLayer", "layer \"%s\" of %s: transparency shapes layer is ignored"},
    {"s_TpsdFileWarningStrings.rFileLayerMaskAsGlobal", "layer \"%s\" of %s: layer mask hides effects is ignored"},
    {"s_TpsdFileWarningStrings.rFileVectorMaskAsGlobal", "layer \"%s\" of %s: vector mask hides effects is ignored"},
    {"s_TpsdFileWarningStrings.rFileAdjustmentLayer", "layer \"%s\" of %s: adjustment layers are ignored"},
    {"s_TpsdFileWarningStrings.rFileObjectBasedEffects", "layer \"%s\" of %s: object-based effects are ignored"},
    {"s_TpsdFileWarningStrings.rFilePatterns", "layer \"%s\" of %s: patterns are ignored"},
    {"s_TpsdFileWarningStrings.rFileAnnotations", "layer \"%s\" of %s: annotations are ignored"},
    {"s_TpsdFileWarningStrings.rFileBlendClippingElements", "layer \"%s\" of %s: blend clipped layers as group is ignored"},
    {"s_TpsdFileWarningStrings.rFileBlendInteriorEffects", "layer \"%s\" of %s: blend interior effects as group is ignored"},
    {"s_TpsdFileWarningStrings.rFileKnockoutOptions", "layer \"%s\" of %s: knockout options are ignored"},
    {"s_TpsdFileWarningStrings.rFileEmptyLayerSet", "layer set \"%s\" of %s is empty or hidden"},
    {"s_TpsdFileWarningStrings.rFileNoMemoryPSDfile", "%s: out of memory while reading the document"},
};

const std::unordered_map<std::string_view, const char*>& table() {
  static const auto* t = [] {
    auto* m = new std::unordered_map<std::string_view, const char*>;
    for (const Entry& e : kCatalogue) m->emplace(e.key, e.text);
    return m;
  }();
  return *t;
}

}  // namespace

const char* voraCatalogueText(const char* key) {
  if (!key) return nullptr;
  auto it = table().find(key);
  return it == table().end() ? nullptr : it->second;
}

TstringId::TstringId(const char* key) : key_(key ? key : "") {}

const char* TstringId::text() const {
  const char* t = voraCatalogueText(key_);
  return t ? t : key_;
}

TerrorHandler* theErrorHandler = nullptr;

TerrorHandler::~TerrorHandler() = default;
void TerrorHandler::reportWarning(const char* message) { reportError(message); }

void reportErrorf(const char* format, ...) {
  if (!theErrorHandler) return;
  char buf[2048];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  theErrorHandler->reportError(buf);
}
