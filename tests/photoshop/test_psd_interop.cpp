// Real documents made by other programs (ag-psd, ImageMagick; see tests/data/README.md) against
// what psd-tools read from them (tests/data/psd/*.tsv), and documents ImageMagick makes in the test.
#include <gtest/gtest.h>
#include <vora/photoshop.h>

#include <fstream>
#include <filesystem>
#include <map>
#include <sstream>

#include "support/test_support.h"

using namespace ktPhotoshop;

namespace {

const std::string kDir = VORA_TEST_DATA "/psd/";
const char* const kDocs[] = {"agpsd_layers_rle.psd", "agpsd_layers_zip.psd", "im_cmyk8_layers_rle.psd",
                             "im_gray8_layers_rle.psd", "im_rgb16_layers_rle.psd"};

std::vector<std::vector<std::string>> table(const std::string& name) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(kDir + name);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> cells;
    std::stringstream s(line);
    std::string cell;
    while (std::getline(s, cell, '\t')) cells.push_back(cell);
    rows.push_back(cells);
  }
  return rows;
}

std::string fourcc(uint32_t k) { return fourCCText(k).str(); }

// The channel's samples as psd-tools hashed them: bytes as stored (16-bit big-endian).
std::string channelHash(TpixelData16& px, PHOTOSHOP_CHANNEL id) {
  const Tchannel* c = px.channel(id);
  const uint8_t* p = px.getChannelPixPtr(id);
  vt::Bytes b(p, p + size_t(c->sampleCount) * c->bytesPerSample());
  if (c->bytesPerSample() == 2)
    for (size_t i = 0; i + 1 < b.size(); i += 2) std::swap(b[i], b[i + 1]);
  return vt::sha256(b);
}

std::unique_ptr<TpsdFile> openDoc(const std::string& name) {
  TphotoshopFile* f = nullptr;
  EXPECT_EQ(openPsdFile((kDir + name).c_str(), f, true), kSuccess) << name;
  return std::unique_ptr<TpsdFile>(static_cast<TpsdFile*>(f));
}

}  // namespace

TEST(PsdInterop, LayerRecordsEqualWhatTheMakingProgramWrote) {
  for (const auto& row : table("layers.tsv")) {
    auto doc = openDoc(row[0]);
    ASSERT_TRUE(doc->readAllLayerRecordInformation()) << row[0] << ": " << doc->lastReadError().str();
    size_t i = std::stoul(row[1]);
    ASSERT_LT(i, doc->layers().size()) << row[0];
    const TpsdLayer& l = *doc->layers()[i];
    auto n = [](int64_t v) { return std::to_string(v); };
    std::string mask = l.mask.length ? n(l.mask.top) + "," + n(l.mask.left) + "," + n(l.mask.bottom) + "," + n(l.mask.right) : "-";
    std::string ids;
    for (const TpsdChannelInfo& c : l.channelInfo) ids += (ids.empty() ? "" : ",") + n(c.id);
    std::string got = l.name.str() + "\t" + n(l.top) + "\t" + n(l.left) + "\t" + n(l.bottom) + "\t" + n(l.right) + "\t" +
                      fourcc(l.blendSignature) + "\t" + fourcc(l.blendKey) + "\t" + n(l.opacity) + "\t" + n(l.clipping) +
                      "\t" + n(l.flags) + "\t" + n(l.sectionType) + "\t" + mask + "\t" + ids;
    std::string want = row[2];
    for (size_t c = 3; c <= 14; ++c) want += "\t" + (c == 12 && row[c] == "-1" ? std::string("0") : row[c]);
    EXPECT_EQ(got, want) << row[0] << " layer " << row[1];
  }
}

TEST(PsdInterop, LayerCountsNamesAndSets) {
  auto doc = openDoc("agpsd_layers_rle.psd");
  TstringArray names, sets;
  EXPECT_EQ(getLayerNames(doc.get(), names), kSuccess);
  EXPECT_EQ(getLayerSetNames(doc.get(), sets), kSuccess);
  std::vector<std::string> n;
  for (auto& s : names) n.push_back(s.str());
  EXPECT_EQ(n, (std::vector<std::string>{"Background", "multiply op128", "screen", "masked", "clip base", "clipped",
                                         "hidden"}));
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0].str(), "group");
  EXPECT_EQ(doc->sectionDividerName().str(), "</Layer group>");
  // ag-psd writes "lsct" with 16 bytes (type, "8BIM", key, sub-type): only the type is read,
  // so the set's blend key stays 0 and "8BIM" "pass" follows as a block of length 0 (the sub-type).
  const TpsdLayer& set = *doc->layers()[5];
  EXPECT_EQ(set.sectionType, 1u);
  EXPECT_EQ(set.sectionBlendKey, 0u);
  ASSERT_EQ(set.additionalInfo.size(), 3u);
  EXPECT_EQ(set.additionalInfo[2].key, fourCC("pass"));
  EXPECT_EQ(set.additionalInfo[2].length, 0u);
  EXPECT_FALSE(doc->layers()[8]->isVisible());
  EXPECT_EQ(doc->imageResources().size(), 2u);
  EXPECT_EQ(doc->imageResources()[0].id, 1026);
  EXPECT_EQ(doc->imageResources()[1].id, 1072);
  for (const char* name : kDocs) {
    auto d = openDoc(name);
    TstringArray all;
    EXPECT_EQ(d->getAllLayerNames(all), 0) << name << ": " << d->lastReadError().str();
    EXPECT_EQ(d->layerCount(), d->layers().size());
  }
}

// Every channel of every layer equals psd-tools' decode - except the 16-bit run-length channels,
// which are decoded with the deliberate two-byte header rule.
TEST(PsdInterop, DecodedLayerChannelsEqualPsdTools) {
  std::map<std::string, std::unique_ptr<TpsdFile>> docs;
  int compared = 0, sixteenBitRle = 0;
  for (const auto& row : table("channels.tsv")) {
    if (row[1] == "composite") continue;
    auto& doc = docs[row[0]];
    if (!doc) {
      doc = openDoc(row[0]);
      ASSERT_EQ(doc->readAllChannelData(), 0) << row[0] << ": " << doc->lastReadError().str();
    }
    TpsdLayer& l = *doc->layers()[std::stoul(row[1])];
    auto id = PHOTOSHOP_CHANNEL(std::stoi(row[2]));
    ASSERT_NE(l.pixels.channel(id), nullptr) << row[0] << " " << row[1] << " " << row[2];
    if (doc->bitDepth() == 16 && l.pixels.compressionMethod(id) == RLE) {
      EXPECT_NE(channelHash(l.pixels, id), row[3]) << "the deliberate 16-bit run-length rule would have to change";
      ++sixteenBitRle;
      continue;
    }
    EXPECT_EQ(channelHash(l.pixels, id), row[3]) << row[0] << " layer " << row[1] << " channel " << row[2];
    ++compared;
  }
  EXPECT_EQ(compared + sixteenBitRle, 92);  // every layer channel of the five documents
  EXPECT_EQ(sixteenBitRle, 11);             // im_rgb16: 3 + 4 + 4 channels
}

TEST(PsdInterop, StoredCompositeEqualsPsdTools) {
  std::map<std::string, std::unique_ptr<TpsdFile>> docs;
  std::map<std::string, TrgbaData> composites;
  for (const auto& row : table("channels.tsv")) {
    if (row[1] != "composite") continue;
    if (!docs[row[0]]) {
      docs[row[0]] = openDoc(row[0]);
      ASSERT_EQ(docs[row[0]]->readFlattenedImage(composites[row[0]]), 0) << docs[row[0]]->lastReadError().str();
    }
    TrgbaData& c = composites[row[0]];
    auto id = PHOTOSHOP_CHANNEL(std::stoi(row[2]));
    if (uint32_t(id) >= c.channelCount()) continue;  // alpha channels are for the alpha readers
    EXPECT_EQ(c.width(), docs[row[0]]->imageWidth());
    EXPECT_EQ(docs[row[0]]->compression(), RLE);
    if (docs[row[0]]->bitDepth() == 16)  // the deliberate 16-bit run-length rule, as above
      EXPECT_NE(channelHash(c.pixelData(), id), row[3]) << row[0] << " composite channel " << row[2];
    else
      EXPECT_EQ(channelHash(c.pixelData(), id), row[3]) << row[0] << " composite channel " << row[2];
  }
}

// vimg psd: the structure as text and JSON; extracted pixels read back by OpenImageIO equal the
// fixtures' reference decodes (psd-tools), layer and composite.
TEST(PsdInterop, VimgPsdInfoAndExtract) {
  const std::string doc = kDir + "agpsd_layers_rle.psd";
  std::string out;
  ASSERT_EQ(vt::vimg("psd info " + doc, &out), 0) << out;
  EXPECT_NE(out.find("32 x 24, 3 channels, 8 bits, colour mode RGB (3)"), std::string::npos) << out;
  EXPECT_NE(out.find("      [4] \"masked\" rect (2, 12)-(16, 22) 14x10"), std::string::npos) << out;  // inside the set
  EXPECT_NE(out.find("[7] \"clipped\" rect (14, 4)-(32, 10) 18x6, blend 8BIM/over, opacity 255, clipping 1"), std::string::npos);
  ASSERT_EQ(vt::vimg("psd info --json " + doc, &out), 0) << out;
  EXPECT_NE(out.find("\"name\":\"multiply op128\",\"section\":\"layer\",\"depth\":0"), std::string::npos) << out;
  EXPECT_NE(out.find("\"composite_compression\":\"rle\""), std::string::npos) << out;
  // The set structure psd-tools found (group_tree): "screen" and "masked" inside "group".
  for (const char* inside : {"screen", "masked"})
    EXPECT_NE(out.find("\"name\":\"" + std::string(inside) + "\",\"section\":\"layer\",\"depth\":1"), std::string::npos)
        << inside;
  for (const char* outside : {"Background", "clip base", "clipped", "hidden"})
    EXPECT_NE(out.find("\"name\":\"" + std::string(outside) + "\",\"section\":\"layer\",\"depth\":0"), std::string::npos)
        << outside;
  EXPECT_NE(out.find("\"name\":\"group\",\"section\":\"open set\",\"depth\":0"), std::string::npos);

  vt::TempDir dir;
  const std::string peer = "/usr/bin/python3 " VORA_TEST_TOOLS "/oiio_pixels.py read ";
  std::map<std::string, std::string> refs;  // layer name -> reference pixels
  for (const auto& row : table("layers.tsv"))
    if (row[0] == "agpsd_layers_zip.psd" && row[15] != "-") refs[row[2]] = row[15];
  ASSERT_EQ(refs.size(), 7u);
  // Every layer in one run (NN_NAME.png, the folder made), and one by name.
  ASSERT_EQ(vt::vimg("psd extract " + kDir + "agpsd_layers_zip.psd --all " + dir.path("all/layers"), &out), 0) << out;
  std::map<std::string, std::string> files;  // NAME -> file
  for (const auto& e : std::filesystem::directory_iterator(dir.path("all/layers")))
    files[e.path().stem().string().substr(3)] = e.path().string();
  for (const auto& [name, sha] : refs) {
    std::string stem = name;
    for (char& ch : stem)
      if (!isalnum(static_cast<unsigned char>(ch)) && ch != '-' && ch != '_') ch = '_';
    ASSERT_TRUE(files.count(stem)) << name;
    ASSERT_EQ(vt::run(peer + files[stem] + " " + dir.path("l.raw") + " --unassociated", &out), 0);
    EXPECT_EQ(vt::sha256(vt::readFile(dir.path("l.raw"))), sha) << name;
  }
  ASSERT_EQ(vt::vimg("psd extract " + kDir + "agpsd_layers_zip.psd --layer masked " + dir.path("l.png"), &out), 0) << out;
  EXPECT_EQ(vt::readFile(dir.path("l.png")), vt::readFile(files["masked"]));
  ASSERT_EQ(vt::vimg("psd extract " + doc + " --composite " + dir.path("c.png"), &out), 0) << out;
  ASSERT_EQ(vt::run(peer + dir.path("c.png") + " " + dir.path("c.raw"), &out), 0);
  EXPECT_EQ(out, "32 24 3 8\n");
  EXPECT_EQ(vt::sha256(vt::readFile(dir.path("c.raw"))), table("composites.tsv")[0][1]);

  // Built back: the composite as a layer inside a set, its red samples as an alpha channel that
  // extracts to ImageMagick's red of the same file.
  ASSERT_EQ(vt::vimg("psd create " + dir.path("m.psd") + " --layer 'c=" + dir.path("c.png") + ":set=s:opacity=9' "
                     "--alpha a=" + dir.path("all/layers/00_Background.png") + " --compress zip", &out), 0) << out;
  ASSERT_EQ(vt::vimg("psd info " + dir.path("m.psd"), &out), 0);
  EXPECT_NE(out.find("[2] open set \"s\" blend pass\n      [1] \"c\" rect (0, 0)-(32, 24) 32x24, blend 8BIM/norm, opacity 9"),
            std::string::npos) << out;
  ASSERT_EQ(vt::vimg("psd extract " + dir.path("m.psd") + " --alpha a " + dir.path("a.png"), &out), 0) << out;
  std::string ours, im;
  vt::run("/usr/bin/convert " + dir.path("a.png") + " -depth 8 gray:- | sha256sum", &ours);
  vt::run("/usr/bin/convert " + dir.path("all/layers/00_Background.png") + " -channel R -separate -depth 8 gray:- | sha256sum", &im);
  EXPECT_EQ(ours, im);
  EXPECT_EQ(vt::vimg("psd extract " + doc + " --layer nosuch " + dir.path("x.png"), &out), 1);
  EXPECT_NE(out.find("no layer named \"nosuch\""), std::string::npos);
  EXPECT_EQ(vt::vimg("psd info " + kDir + "layers.tsv", &out), 1);
  EXPECT_NE(out.find("not a Photoshop document"), std::string::npos);
}

namespace {

// Interleaves a layer's or the composite's red, green, blue (and transparency) samples as
// ImageMagick's "rgb:"/"rgba:" output stores them (16-bit: big-endian).
vt::Bytes interleave(TpixelData16& px, bool alpha) {
  std::vector<PHOTOSHOP_CHANNEL> ids = {RED, GREEN, BLUE};
  if (alpha) ids.push_back(TRANSPARENCY);
  const size_t count = px.size(RED), bps = px.bytesPerChannel();
  vt::Bytes out;
  for (size_t k = 0; k < count; ++k)
    for (PHOTOSHOP_CHANNEL id : ids) {
      const uint8_t* p = px.getChannelPixPtr(id);
      if (bps == 1) out.push_back(p[k]);
      else out.push_back(uint8_t(reinterpret_cast<const uint16_t*>(p)[k] >> 8)), out.push_back(uint8_t(reinterpret_cast<const uint16_t*>(p)[k]));
    }
  return out;
}

}  // namespace

// Documents made here by ImageMagick (raw and run-length, 8 and 16 bits): records, and layer and
// composite pixels equal to what ImageMagick put in (its own raw dumps of the inputs).
TEST(PsdInterop, ImageMagickDocumentsMadeHere) {
  vt::TempDir dir;
  auto sh = [&](const std::string& cmd) { ASSERT_EQ(vt::run("cd '" + dir.dir() + "' && " + cmd + " 2>&1"), 0) << cmd; };
  sh("convert -size 32x24 gradient:'#ff0000-#0000ff' bg.png");
  sh("convert -size 20x12 xc:'rgba(0,255,0,0.5)' -fill white -draw 'rectangle 2,2 10,8' a.png");
  for (int depth : {8, 16}) {
    const std::string d = std::to_string(depth);
    sh("convert a.png -depth " + d + " -endian MSB rgba:a" + d + ".rgba");
    sh("convert bg.png -depth " + d + " -endian MSB rgb:bg" + d + ".rgb");
    for (const std::string compress : {"None", "RLE"}) {
      SCOPED_TRACE(compress + " " + d);
      const std::string name = "doc_" + compress + "_" + d + ".psd";
      sh("convert bg.png -set label Background \\( a.png -set page +4+3 -set label half \\) "
         "\\( -clone 0--1 -background none -flatten -alpha off \\) -insert 0 -depth " + d + " -compress " + compress +
         " " + name);
      sh("convert " + name + "'[0]' -depth " + d + " -endian MSB rgb:flat" + d + ".rgb");
      TphotoshopFile* f = nullptr;
      ASSERT_EQ(openPsdFile(dir.path(name).c_str(), f, true), kSuccess);
      std::unique_ptr<TpsdFile> doc(static_cast<TpsdFile*>(f));
      ASSERT_EQ(doc->readAllChannelData(), 0) << doc->lastReadError().str();
      ASSERT_EQ(doc->layers().size(), 2u);
      TpsdLayer& half = *doc->layers()[1];
      EXPECT_EQ(half.name.str(), "half");
      EXPECT_EQ(std::vector<int32_t>({half.top, half.left, half.bottom, half.right}), std::vector<int32_t>({3, 4, 15, 24}));
      EXPECT_EQ(doc->bitDepth(), depth);
      EXPECT_EQ(half.pixels.compressionMethod(RED), compress == "RLE" ? RLE : RAW);
      TrgbaData composite;
      ASSERT_EQ(doc->readFlattenedImage(composite), 0) << doc->lastReadError().str();
      if (compress == "RLE" && depth == 16) continue;  // the deliberate 16-bit run-length rule
      EXPECT_TRUE(interleave(half.pixels, true) == vt::readFile(dir.path("a" + d + ".rgba")));
      EXPECT_TRUE(interleave(doc->layers()[0]->pixels, false) == vt::readFile(dir.path("bg" + d + ".rgb")));
      EXPECT_TRUE(interleave(composite.pixelData(), false) == vt::readFile(dir.path("flat" + d + ".rgb")));
    }
  }
}

// A document made here with ag-psd (tests/tools/make_agpsd.js): effects and adjustment layers
// raise exactly the warnings of the keys ag-psd writes ("lrFX" is not "lrfx", "levl" is
// not "lev1": deliberate), a closed set, and the pixels the script put in.
TEST(PsdInterop, AgPsdEffectsAndAdjustmentLayers) {
  TpsdFileWarning::instance().clear();
  auto doc = openDoc("agpsd_effects_adjust.psd");
  ASSERT_EQ(doc->readAllChannelData(), 0) << doc->lastReadError().str();
  ASSERT_EQ(doc->layers().size(), 7u);
  const TpsdLayer& shadowed = *doc->layers()[1];
  std::vector<std::string> keys;
  for (const TpsdInfoBlock& b : shadowed.additionalInfo) keys.push_back(fourcc(b.key));
  EXPECT_EQ(keys, (std::vector<std::string>{"lrFX", "luni", "lfx2"}));
  EXPECT_NE(doc->layers()[2]->block(fourCC("levl")), nullptr);
  EXPECT_NE(doc->layers()[3]->block(fourCC("curv")), nullptr);
  EXPECT_EQ(doc->layers()[6]->sectionType, 2u);  // closed set
  EXPECT_EQ(doc->layers()[6]->name.str(), "closed set");
  auto& w = TpsdFileWarning::instance();
  EXPECT_EQ(w.warningBits(), (std::vector<uint32_t>{65536, 32768}));
  EXPECT_EQ(w.messages()[1].str(), "layer \"curves\" of agpsd_effects_adjust.psd: adjustment layers are ignored");
  TpixelData16& px = doc->layers()[1]->pixels;  // 6 x 5: (200, 50, x * 40, 255)
  for (uint32_t y = 0; y < 5; ++y)
    for (uint32_t x = 0; x < 6; ++x) {
      size_t i = y * 6 + x;
      ASSERT_EQ(px.getRedPixelPtr()[i], 200);
      ASSERT_EQ(px.getGreenPixelPtr()[i], 50);
      ASSERT_EQ(px.getBluePixelPtr()[i], x * 40);
      ASSERT_EQ(px.getTransparencyPixelPtr()[i], 255);
    }
  TpixelData16& inner = doc->layers()[5]->pixels;  // 3 x 3 of (1, 2, 3, 128)
  EXPECT_EQ(inner.getBluePixelPtr()[8], 3);
  EXPECT_EQ(inner.getTransparencyPixelPtr()[4], 128);
  TstringArray sets;
  EXPECT_EQ(doc->readLayerSetNames(sets), 0);
  ASSERT_EQ(sets.size(), 1u);
  w.clear();
}
