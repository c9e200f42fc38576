// The Photoshop document reader on documents built byte by byte (tests/support/psd_builder.h):
// header, resources, layer records and blocks, warnings, the global sections, the composite.
#include <gtest/gtest.h>
#include <vora/photoshop.h>

#include <cstring>

#include "support/psd_builder.h"
#include "support/test_support.h"

using namespace ktPhotoshop;
namespace psd = vt::psd;
using vt::Bytes;

namespace {

struct Doc {
  vt::TempDir dir;
  std::string path;
  std::unique_ptr<TpsdFile> file;
  explicit Doc(const Bytes& bytes, const char* name = "doc.psd") : path(dir.path(name)) {
    vt::writeFile(path, bytes);
    TphotoshopFile* f = nullptr;
    if (openPsdFile(path.c_str(), f, true) == kSuccess) file.reset(static_cast<TpsdFile*>(f));
  }
  TpsdFile* operator->() { return file.get(); }
  void read() { EXPECT_TRUE(file->readAllLayerRecordInformation()) << file->lastReadError().str(); }
  // Reads the records and answers the first layer.
  const TpsdLayer& first() {
    read();
    if (file->layers().empty()) throw std::runtime_error("no layer read");
    return *file->layers()[0];
  }
};

psd::Layer layer(const std::string& name, uint32_t w = 2, uint32_t h = 1) {
  psd::Layer l;
  l.bottom = int32_t(h), l.right = int32_t(w);
  l.name = name;
  for (int16_t id : {-1, 0, 1, 2}) l.channels.push_back(psd::rawChannel(id, Bytes(size_t(w) * h, uint8_t(10 + id))));
  return l;
}

psd::Layer with(psd::Layer l, std::vector<std::pair<uint32_t, Bytes>> blocks) {
  l.blocks = std::move(blocks);
  return l;
}

// A set as Photoshop stores it, bottom first: divider, children, set record.
std::vector<psd::Layer> withSet(std::vector<psd::Layer> children, const std::string& setName = "set") {
  std::vector<psd::Layer> out{with(layer("</Layer group>", 0, 0), {{fourCC("lsct"), psd::words({3})}})};
  out.insert(out.end(), children.begin(), children.end());
  out.push_back(with(layer(setName, 0, 0), {{fourCC("lsct"), psd::words({1}, "pass")}}));
  return out;
}

std::vector<std::string> strings(const TstringArray& a) {
  std::vector<std::string> s;
  for (auto& x : a) s.push_back(x.str());
  return s;
}

uint32_t bitsNow() { return TpsdFileWarning::instance().allBits(); }

class PsdReader : public ::testing::Test {
 protected:
  void SetUp() override { TpsdFileWarning::instance().clear(); }
};

}  // namespace

TEST_F(PsdReader, HeaderDepthsAndWhatIsNotAVersionOneDocument) {
  psd::Document d;
  d.channels = 5, d.width = 300, d.height = 7, d.depth = 16, d.mode = 3;
  d.colorModeData = {1, 2, 3};
  Bytes bytes = psd::build(d);
  memcpy(&bytes[6], "\x01\x02\x03\x04\x05\x06", 6);  // reserved bytes: kept, not checked
  Doc doc(bytes);
  ASSERT_TRUE(doc.file);
  EXPECT_EQ(doc->imageWidth() * 1000 + doc->imageHeight(), 300007u);
  EXPECT_EQ(doc->colorDepth(), k16Bits);
  EXPECT_EQ(doc->channels(), 5);
  EXPECT_EQ(memcmp(doc->reserved(), "\x01\x02\x03\x04\x05\x06", 6), 0);
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(doc->colorModeData(), (Bytes{1, 2, 3}));
  for (uint16_t depth : {1, 7, 32}) {  // open answers 0 all the same; reading fails
    d.depth = depth;
    Doc bad(psd::build(d));
    ASSERT_TRUE(bad.file);
    EXPECT_FALSE(bad->readAllLayerRecordInformation()) << depth;
    TstringArray names;
    EXPECT_EQ(bad->getAllLayerNames(names), -1);
  }
  TpsdFile f;
  EXPECT_EQ(vt::thrown<TpsdException>([&] { f.setColorDepth(12); }), "Invalid color depth");
  d.depth = 8, d.version = 2;  // large documents are not read
  Doc v2(psd::build(d));
  EXPECT_FALSE(isFilePsd(v2.path.c_str()));
  EXPECT_FALSE(v2.file);
  EXPECT_FALSE(isFilePsd("/nonexistent/doc.psd"));
  d.version = 1, d.noLayerSection = true;  // a layer and mask section of length 0
  Doc none(psd::build(d));
  EXPECT_FALSE(none->readAllLayerRecordInformation());
  EXPECT_EQ(none->lastReadError().str(), "");
  TstringArray names;
  EXPECT_EQ(none->getAllLayerNames(names), 0);
  EXPECT_EQ(getLayerNames(none.file.get(), names), kFailure);
}

TEST_F(PsdReader, ImageResourcesNamesSignaturesAndSpecialIds) {
  psd::Document d;
  d.channels = 5;  // two alpha channels
  Bytes names = {3, 'o', 'n', 'e', 3, 't', 'w', 'o', 9, 9, 9};  // 2 names, then 3 bytes skipped
  Bytes meSa = psd::resource(2000, "", {1, 2});
  memcpy(meSa.data(), "MeSa", 4);
  d.resources = vt::cat({psd::resource(1044, "", psd::words({0xABCD})), psd::resource(1006, "nm", names),
                         psd::resource(1053, "", psd::words({11, 22})), meSa, psd::resource(1005, "odd", {5})});
  Doc doc(psd::build(d));
  doc.read();
  const auto& r = doc->imageResources();
  ASSERT_EQ(r.size(), 5u);
  EXPECT_EQ(r[0].value1044, 0xABCDu);
  EXPECT_STREQ(r[1].name.data(), "nm");
  EXPECT_EQ(r[1].dataSize, 12u);  // 11 rounded up to even
  EXPECT_EQ(strings(doc->alphaNames()), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(doc->alphaIdentifiers(), (std::vector<int32_t>{11, 22}));
  EXPECT_EQ(r[3].signature, fourCC("MeSa"));
  EXPECT_EQ(r[3].data, (Bytes{1, 2}));
  EXPECT_EQ(r[4].data, (Bytes{5, 0}));
  TstringArray alpha;
  EXPECT_EQ(doc->readAlphaList(alpha), 1);
  EXPECT_EQ(strings(alpha), (std::vector<std::string>{"one", "two"}));
  // Three channels: 1006 is skipped whole and keeps no data.
  d.channels = 3;
  d.resources = vt::cat({psd::resource(1006, "", {5, 'A', 'l', 'p', 'h', 'a'}), psd::resource(1005, "", Bytes(16, 3))});
  Doc three(psd::build(d));
  three.read();
  EXPECT_TRUE(three->alphaNames().empty());
  EXPECT_TRUE(three->imageResources()[0].data.empty());
  EXPECT_EQ(three->imageResources()[1].data, Bytes(16, 3));
  // A resource name of 128 characters: 129 is odd and -127 as a signed byte, so 3 bytes are skipped.
  Bytes entry;
  psd::put4(entry, "8BIM"), vt::be16(entry, 1005);
  entry.push_back(128);
  entry.insert(entry.end(), 128, 'r');
  entry.insert(entry.end(), 3, 0);
  vt::be32(entry, 2), entry.push_back(7), entry.push_back(8);
  d.resources = entry;
  Doc padded(psd::build(d));
  padded.read();
  ASSERT_EQ(padded->imageResources().size(), 1u);
  EXPECT_EQ(padded->imageResources()[0].data, (Bytes{7, 8}));
  d.resources = {};
  Doc empty(psd::build(d));
  EXPECT_EQ(empty->readAlphaList(alpha), 0);
}

TEST_F(PsdReader, BlendSignaturesMasksAndBlendingRanges) {
  psd::Document d;
  psd::Layer odd = layer("odd");
  odd.blendSignature = "MeSa", odd.blendKey = "";  // no key after another signature
  Bytes mask = psd::words({1, 2, 30, 40});
  mask.insert(mask.end(), {255, 4, 9, 200});  // default colour, flags, real flags, real background
  vt::append(mask, psd::words({5, 6, 7, 8}));     // real rectangle: 36 bytes in all
  psd::Layer masked = with(layer("masked"), {{fourCC("lyid"), psd::words({77})}});
  masked.mask = mask;
  psd::Layer twenty = with(layer("twenty"), {{fourCC("lyid"), psd::words({78})}});
  twenty.mask = Bytes(mask.begin(), mask.begin() + 18), twenty.mask.resize(20, 0);
  psd::Layer four = layer("four");  // grey pair + 4 channel pairs (GIMP and others write length 0)
  for (uint32_t v = 1; v <= 10; ++v) vt::be32(four.ranges, v);
  d.layers = {odd, masked, twenty, four, layer("after")};
  Doc doc(psd::build(d));
  doc.read();
  ASSERT_EQ(doc->layers().size(), 5u);
  const TpsdLayer &a = *doc->layers()[0], &m = *doc->layers()[1], &t = *doc->layers()[2], &f = *doc->layers()[3];
  EXPECT_EQ(a.blendSignature, fourCC("MeSa"));
  EXPECT_EQ(a.blendKey, 0u);
  EXPECT_EQ(a.blendingRanges.length, 0u);
  char got[160];
  snprintf(got, sizeof got, "%u %d,%d,%d,%d %d %d %d %d %d,%d lyid %u extra %u", m.mask.length, m.mask.top,
           m.mask.left, m.mask.bottom, m.mask.right, m.mask.defaultColor, m.mask.flags, m.mask.realFlags,
           m.mask.realUserMaskBackground, m.mask.realTop, m.mask.realRight, m.layerId, m.extraDataLength);
  EXPECT_STREQ(got, "36 1,2,30,40 255 4 9 200 5,8 lyid 77 extra 68");
  EXPECT_EQ(t.mask.realFlags * 1000 + t.layerId, 78u);  // 20 bytes: no real fields, in step after
  EXPECT_EQ(f.blendingRanges.length, 40u);
  EXPECT_EQ(f.blendingRanges.compositeGreySource * 10 + f.blendingRanges.compositeGreyDestination, 12u);
  ASSERT_EQ(f.blendingRanges.channels.size(), 4u);
  EXPECT_EQ(f.blendingRanges.channels[3], (std::pair<uint32_t, uint32_t>{9, 10}));
  EXPECT_EQ(doc->layers()[4]->name.str(), "after");
  // A key written after another signature is not consumed: the record is read four bytes early.
  psd::Layer early = layer("early");
  early.blendSignature = "ABCD";
  d.layers = {early};
  Doc e(psd::build(d));
  e->readAllLayerRecordInformation();
  ASSERT_EQ(e->layers().size(), 1u);
  const TpsdLayer& el = *e->layers()[0];
  EXPECT_EQ(std::string({char(el.opacity), char(el.clipping), char(el.flags), char(el.filler)}), "norm");
}

TEST_F(PsdReader, LayerNamePaddingAndCounts) {
  for (auto [length, pad] : {std::pair<size_t, size_t>{127, 0}, {3, 0}, {4, 3}, {128, 7}}) {
    psd::Document d;
    psd::Layer l = with(layer(std::string(length, 'n')), {{fourCC("lyid"), psd::words({42})}});
    l.namePad = pad;  // the signed rule's pad
    d.layers = {l, layer("next")};
    Doc doc(psd::build(d));
    EXPECT_EQ(doc.first().name.length(), length);
    EXPECT_EQ(doc.first().layerId, 42u) << length;
    EXPECT_EQ(doc->layers().back()->name.str(), "next") << length;
  }
  // With the 3 pad bytes Photoshop, GIMP and ag-psd write after 128 characters, the signed rule
  // skips 4 too many and misreads what follows (kept: it never crashes).
  psd::Document d;
  d.layers = {with(layer(std::string(128, 'n')), {{fourCC("lyid"), psd::words({42})}}), layer("next")};
  Doc doc(psd::build(d));
  doc->readAllLayerRecordInformation();
  ASSERT_GE(doc->layers().size(), 1u);
  EXPECT_EQ(doc->layers()[0]->layerId, 0u);
  // A negative count is taken absolute; more than 56 channels throws to the caller.
  d.layers = {layer("a"), layer("b"), layer("c")};
  d.countSign = -1;
  Doc negative(psd::build(d));
  negative.read();
  EXPECT_EQ(negative->layerCount(), 3u);
  d.countSign = 1;
  psd::Layer many = layer("many");
  many.channels.assign(57, psd::rawChannel(0, Bytes(2, 0)));
  d.layers = {many};
  Doc tooMany(psd::build(d));
  TstringArray names;
  EXPECT_EQ(vt::thrown<TpsdException>([&] { tooMany->getAllLayerNames(names); }), "Invalid information read from file");
  many.channels.resize(56);
  d.layers = {many};
  Doc ok(psd::build(d));
  EXPECT_EQ(ok->getAllLayerNames(names), 0);
}

TEST_F(PsdReader, LayerBlocksKeysWarningsAndIds) {
  psd::Document d;
  psd::Layer l = layer("fx");
  const char warned[][5] = {"lrfx", "lfx2", "patt", "Anno", "blnc", "brit", "curv", "hue2", "nvrt", "post", "selc", "thrs", "lev1"};
  for (const auto& k : warned) l.blocks.push_back({fourCC(k), Bytes{1, 2, 3}});
  l.blocks.push_back({0x00687565u, Bytes{1}});    // "\0hue": the three-character key
  l.blocks.push_back({fourCC("levl"), Bytes{1}});  // not an adjustment key
  l.blocks.push_back({fourCC("hue "), Bytes{1}});  // nor this
  l.blocks.push_back({fourCC("lrfx"), Bytes{}});   // zero length: nothing read, nothing raised
  l.blocks.push_back({fourCC("lyid"), psd::words({99})});
  l.blocks.push_back({fourCC("luni"), Bytes{0, 0, 0, 1, 0, 'x'}});
  d.layers = withSet({l, with(layer("in set"), {{fourCC("patt"), Bytes{1}}})});
  d.layers.back().blocks.push_back({fourCC("lrfx"), Bytes{1}});   // on the set record: not raised
  d.layers.front().blocks.push_back({fourCC("lrfx"), Bytes{1}});  // on the divider: not raised
  Doc doc(psd::build(d));
  doc.read();
  const TpsdLayer& x = *doc->layers()[1];
  EXPECT_EQ(x.layerId, 99u);
  EXPECT_EQ(x.additionalInfoCount, 19u);
  EXPECT_EQ(x.block(fourCC("luni"))->data, (Bytes{0, 0, 0, 1, 0, 'x'}));
  EXPECT_TRUE(x.block(fourCC("lyid"))->data.empty());
  auto& w = TpsdFileWarning::instance();
  std::vector<uint32_t> expected = {2048, 65536, 131072, 262144};
  expected.insert(expected.end(), 10, 32768);
  expected.push_back(131072);  // the set's child: a type-0 layer too
  EXPECT_EQ(w.warningBits(), expected);
  EXPECT_EQ(w.messages()[0].str(), std::string("layer \"fx\" of doc.psd: layer effects are ignored"));
}

// lsct of 16 bytes (Photoshop CC, ag-psd) reads only the type; "norm" is not "8BIM", so the blocks end.
TEST_F(PsdReader, SetsDividersAndLsctOfLength16) {
  psd::Document d;
  auto inner = withSet({layer("deep")}, "inner");
  inner.back().blocks = {{fourCC("lsct"), psd::words({2}, "norm")}};  // closed
  inner.push_back(layer("side"));
  d.layers = withSet(inner, "outer");
  d.layers.insert(d.layers.begin(), layer("bottom"));
  Doc doc(psd::build(d));
  TstringArray names, sets;
  ASSERT_EQ(doc->getAllLayerNames(names), 0);
  ASSERT_EQ(doc->readLayerSetNames(sets), 0);
  EXPECT_EQ(strings(names), (std::vector<std::string>{"bottom", "deep", "side"}));
  EXPECT_EQ(strings(sets), (std::vector<std::string>{"inner", "outer"}));
  EXPECT_EQ(doc->sectionDividerName().str(), "</Layer group>");
  EXPECT_EQ(getLayerSetNames(doc.file.get(), sets), kSuccess);
  Bytes sixteen = psd::words({2});
  psd::put4(sixteen, "norm"), psd::put4(sixteen, "pass"), vt::be32(sixteen, 0);
  d.layers = {with(layer("set", 0, 0), {{fourCC("lsct"), sixteen}, {fourCC("lyid"), psd::words({5})}})};
  Doc cc(psd::build(d));
  const TpsdLayer& s = cc.first();
  EXPECT_EQ(s.sectionType, 2u);
  EXPECT_EQ(s.sectionBlendKey, 0u);
  ASSERT_EQ(s.additionalInfo.size(), 1u);
  EXPECT_EQ(s.layerId, 0u);  // never reached
}

// Colour-mode warnings only for documents with a set, and only from the second reading on (the
// first learns the divider's name); an empty set raises nothing while reading.
TEST_F(PsdReader, ColourModeWarningsOnceADividerIsKnown) {
  const std::pair<uint16_t, uint32_t> modes[] = {{0, 1}, {1, 2}, {2, 4}, {4, 8}, {7, 16}, {8, 32}, {9, 64}, {3, 0}, {5, 0}, {15, 0}};
  for (auto [mode, bit] : modes) {
    TpsdFileWarning::instance().clear();
    psd::Document d;
    d.mode = mode;
    d.layers = {layer("x")};
    Doc plain(psd::build(d), "plain.psd");
    for (int i = 0; i < 3; ++i) plain->readAllLayerRecordInformation();
    EXPECT_EQ(bitsNow(), 0u) << mode;
    d.layers = withSet({layer("x")});
    Doc doc(psd::build(d), "set.psd");
    doc->readAllLayerRecordInformation();
    EXPECT_EQ(bitsNow(), 0u) << mode;
    doc->readAllLayerRecordInformation();
    doc->readAllLayerRecordInformation();
    std::vector<uint32_t> want = bit ? std::vector<uint32_t>{bit, bit} : std::vector<uint32_t>{};
    EXPECT_EQ(TpsdFileWarning::instance().warningBits(), want) << mode;  // once per later reading
  }
  EXPECT_EQ(TpsdFileWarning::instance().messages().size(), 0u);
  psd::Document d;
  d.mode = 1, d.channels = 1, d.layers = withSet({});
  Doc grey(psd::build(d), "set.psd");
  grey->readAllLayerRecordInformation();
  grey->readAllLayerRecordInformation();
  EXPECT_EQ(TpsdFileWarning::instance().messages()[0].str(), "set.psd: grayscale documents are read as their stored channel");
  EXPECT_EQ(bitsNow() & TpsdFileWarning::rFileEmptyLayerSet, 0u);
  TpsdFileWarning::instance().addWarning(TpsdFileWarning::rFileNoMemoryPSDfile, "", "x.psd");
  EXPECT_EQ(TpsdFileWarning::instance().messages().back().str(), "x.psd: out of memory while reading the document");
}

// 8-bit documents seek to the end of the channel data before the additional information too, so
// they read it at the global mask's length word and find no blocks; 16-bit documents (layers in
// Lr16, blocks padded by 4 - length % 4) find theirs. Later readings only seek.
TEST_F(PsdReader, GlobalSectionsAndCachedPositions) {
  psd::Document d;
  d.resources = psd::resource(1005, "", Bytes(8, 1));
  d.layers = {layer("a", 3, 2), layer("b")};
  d.globalMask = {1, 2, 3, 4, 5};
  d.globalBlocks = {{fourCC("Txt2"), Bytes{9, 9, 9}}, {fourCC("Patt"), Bytes(10, 1)}};
  Doc doc(psd::build(d));
  doc.read();
  EXPECT_EQ(doc->globalLayerMask(), (Bytes{1, 2, 3, 4, 5}));
  EXPECT_EQ(doc->additionalGlobalInfoCount(), 0u);
  EXPECT_EQ(doc->endOfAdditionalInfo(), doc->endOfGlobalMask() - 4 - 5);
  uint32_t end = doc->endOfImageResources();
  EXPECT_EQ(end, 26u + 4 + 4 + 20);
  Bytes bytes = vt::readFile(doc.path);  // spoil resources and records on disk
  std::fill(bytes.begin() + 34, bytes.begin() + end, 0xEE);
  std::fill(bytes.begin() + end + 10, bytes.begin() + doc->startOfChannelData(), 0xEE);
  vt::writeFile(doc.path, bytes);
  TstringArray names;
  ASSERT_EQ(doc->getAllLayerNames(names), 0) << doc->lastReadError().str();
  EXPECT_EQ(names.size(), 2u);
  EXPECT_EQ(doc->imageResources()[0].data, Bytes(8, 1));

  d.depth = 16;
  d.layersInLr16 = true;
  for (auto& l : d.layers)
    for (auto& c : l.channels) c.data.resize(c.data.size() * 2, 7);
  Doc deep(psd::build(d));
  deep.read();
  EXPECT_GT(deep->layerInfoLength(), 0u);  // Lr16's length replaced the main section's 0
  EXPECT_EQ(deep->globalLayerMask(), (Bytes{1, 2, 3, 4, 5}));
  ASSERT_EQ(deep->additionalGlobalInfoCount(), 2u);
  EXPECT_EQ(deep->additionalGlobalInfo()[0].key, fourCC("Txt2"));
  EXPECT_EQ(deep->additionalGlobalInfo()[0].length * 100 + deep->additionalGlobalInfo()[1].length, 412u);
  ASSERT_EQ(deep->readAllChannelData(), 0);
  EXPECT_EQ(deep->layers()[0]->pixels.getChannelPixPtr(RED)[0], 10);
  // 16-bit layers in the main section: no seek past the channel data before the global mask, so
  // its length is read at the channel data (ImageMagick's documents keep their layers).
  d.layersInLr16 = false, d.globalBlocks = {};
  Doc main16(psd::build(d));
  main16.read();
  EXPECT_EQ(main16->endOfGlobalMask(), main16->startOfChannelData() + 4 + main16->globalLayerMask().size());
}

TEST_F(PsdReader, CompositeRawAndRunLengthAs8And16Bits) {
  for (uint16_t depth : {8, 16})
    for (uint16_t compression : {0, 1}) {
      psd::Document d;
      d.depth = depth, d.width = 3, d.height = 2, d.channels = 4;
      d.compositeCompression = compression;
      const size_t bps = depth / 8, plane = 6 * bps;
      Bytes planes;
      for (uint8_t c = 0; c < 4; ++c)
        for (size_t i = 0; i < plane; ++i) planes.push_back(uint8_t(c * 40 + i));
      d.composite = planes;
      if (compression == 1) {  // rows as literal packets
        Bytes table, rows;
        for (int r = 0; r < 8; ++r) {
          vt::be16(table, uint32_t(1 + 3 * bps));
          rows.push_back(uint8_t(3 * bps - 1));
          rows.insert(rows.end(), planes.begin() + long(r * 3 * bps), planes.begin() + long((r + 1) * 3 * bps));
        }
        d.composite = vt::cat({table, rows});
      }
      Doc doc(psd::build(d));
      TrgbaData out;
      ASSERT_EQ(doc->readFlattenedImage(out), 0) << doc->lastReadError().str();
      EXPECT_EQ(out.channelCount(), 3u);  // the fourth (alpha) channel is left out
      TpixelData16& px = out.pixelData();
      EXPECT_EQ(px.compressionMethod(BLUE), compression ? RLE : RAW);
      if (compression == 1) {
        EXPECT_EQ(px.compositeLenInfo(GREEN)->size(), 2u);
      }
      if (depth == 8 || compression == 0)  // 16-bit run-length rows keep their deliberate rule
        for (int c = 0; c < 3; ++c)
          for (size_t i = 0; i < 6; ++i) {
            const uint8_t* p = px.getChannelPixPtr(PHOTOSHOP_CHANNEL(c)) + i * bps;
            const uint8_t* q = &planes[c * plane + i * bps];
            EXPECT_EQ(depth == 8 ? *p : *reinterpret_cast<const uint16_t*>(p), depth == 8 ? *q : q[0] << 8 | q[1])
                << depth << " " << compression << " c" << c << " i" << i;
          }
      // Never read: the transparency channel keeps the maximum.
      const uint8_t* t = px.getTransparencyPixelPtr();
      EXPECT_EQ(depth == 8 ? *t : *reinterpret_cast<const uint16_t*>(t), depth == 8 ? 255 : 65535);
    }
  psd::Document d;
  d.channels = 1, d.mode = 1, d.width = 2, d.height = 2, d.composite = {1, 2, 3, 4};
  Doc grey(psd::build(d));
  TrgbaData out;
  ASSERT_EQ(grey->readFlattenedImage(out), 0);
  EXPECT_EQ(out.channelCount(), 1u);
  EXPECT_EQ(out.pixelData().getRedPixelPtr()[3], 4);
  d.compositeCompression = 2;
  Doc zip(psd::build(d));
  EXPECT_EQ(zip->readFlattenedImage(out), -1);
  EXPECT_NE(zip->lastReadError().str().find("compression 2"), std::string::npos);
}
