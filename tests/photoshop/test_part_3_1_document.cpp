// Part 3.1: the Photoshop document model and reader, on documents built byte by byte
// (tests/support/psd_builder.h): every edge-case bullet, the header, resources, layer records,
// blocks and warnings, the global sections, the composite.
#include <gtest/gtest.h>
#include <vora/foundation/messages.h>
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
};

psd::Layer layer(const std::string& name, uint32_t w = 2, uint32_t h = 1) {
  psd::Layer l;
  l.bottom = int32_t(h), l.right = int32_t(w);
  l.name = name;
  for (int16_t id : {-1, 0, 1, 2}) l.channels.push_back(psd::rawChannel(id, Bytes(size_t(w) * h, uint8_t(10 + id))));
  return l;
}

Bytes lsct(uint32_t type, const char* key = nullptr) {
  Bytes b;
  psd::put32(b, type);
  if (key) psd::put4(b, "8BIM"), psd::put4(b, key);
  return b;
}

Bytes u32(uint32_t v) {
  Bytes b;
  psd::put32(b, v);
  return b;
}

// A set as Photoshop stores it, bottom first: divider, children, set record.
std::vector<psd::Layer> withSet(std::vector<psd::Layer> children, const std::string& setName = "set") {
  psd::Layer divider = layer("</Layer group>", 0, 0);
  divider.blocks = {{fourCC("lsct"), lsct(3)}};
  psd::Layer set = layer(setName, 0, 0);
  set.blocks = {{fourCC("lsct"), lsct(1, "pass")}};
  std::vector<psd::Layer> out{divider};
  out.insert(out.end(), children.begin(), children.end());
  out.push_back(set);
  return out;
}

uint32_t bitsNow() { return TpsdFileWarning::instance().allBits(); }

class Part3_1 : public ::testing::Test {
 protected:
  void SetUp() override { TpsdFileWarning::instance().clear(); }
};
using Part3_1_EdgeCases = Part3_1;

}  // namespace

// --- Edge cases worth testing (Part 3.1) ---

TEST_F(Part3_1_EdgeCases, VersionTwoLargeDocumentIsNotAPsdFile) {
  psd::Document d;
  d.version = 2;
  Doc doc(psd::build(d));
  EXPECT_FALSE(isFilePsd(doc.path.c_str()));
  TphotoshopFile* f = nullptr;
  EXPECT_EQ(openPsdFile(doc.path.c_str(), f, false), kFailure);
  EXPECT_EQ(f, nullptr);
  EXPECT_FALSE(isFilePsd("/nonexistent/doc.psd"));
}

TEST_F(Part3_1_EdgeCases, LayerAndMaskSectionLengthZero) {
  psd::Document d;
  d.noLayerSection = true;
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc.file);
  EXPECT_FALSE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(doc->lastReadError().str(), "");
  TstringArray names;
  EXPECT_EQ(doc->getAllLayerNames(names), 0);
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(getLayerNames(doc.file.get(), names), kFailure);
}

TEST_F(Part3_1_EdgeCases, SixteenBitLayersOnlyInLr16AreFound) {
  psd::Document d;
  d.depth = 16;
  d.layersInLr16 = true;
  d.layers = {layer("low"), layer("high")};
  for (auto& l : d.layers)
    for (auto& c : l.channels) c.data.resize(c.data.size() * 2, 7);  // 16-bit samples
  d.globalBlocks = {{fourCC("Patt"), Bytes(6, 1)}};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  EXPECT_GT(doc->layerInfoLength(), 0u);  // the Lr16 length replaced the main section's 0
  ASSERT_EQ(doc->layers().size(), 2u);
  EXPECT_EQ(doc->layers()[1]->name.str(), "high");
  // After the Lr16 block the next block is found: the seek past the channel data is right.
  ASSERT_EQ(doc->additionalGlobalInfo().size(), 1u);
  EXPECT_EQ(doc->additionalGlobalInfo()[0].key, fourCC("Patt"));
  EXPECT_EQ(doc->additionalGlobalInfo()[0].length, 8u);  // 6 raised by 4 - 6 % 4
  ASSERT_EQ(doc->readAllChannelData(), 0);
  EXPECT_EQ(doc->layers()[0]->pixels.getChannelPixPtr(RED)[0], 10);
}

TEST_F(Part3_1_EdgeCases, GrayscaleWarningOnlyWithALayerSetAndAfterTheFirstReading) {
  psd::Document d;
  d.mode = 1;
  d.channels = 1;
  d.layers = {layer("a")};
  Doc plain(psd::build(d), "plain.psd");
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(plain->readAllLayerRecordInformation());
  EXPECT_EQ(bitsNow(), 0u);

  d.layers = withSet({layer("child")});
  Doc withSetDoc(psd::build(d), "set.psd");  // open: the first header reading
  ASSERT_TRUE(withSetDoc->readAllLayerRecordInformation());  // header before the divider: none
  EXPECT_EQ(bitsNow(), 0u);
  ASSERT_TRUE(withSetDoc->readAllLayerRecordInformation());
  ASSERT_TRUE(withSetDoc->readAllLayerRecordInformation());
  auto& w = TpsdFileWarning::instance();
  ASSERT_EQ(w.warningBits(), (std::vector<uint32_t>{2, 2}));  // once per later reading, duplicates kept
  EXPECT_EQ(w.messages()[0].str(), std::string("set.psd: grayscale documents are read as their stored channel"));
}

TEST_F(Part3_1_EdgeCases, BlendSignatureOtherThan8BIMReadsNoKey) {
  psd::Document d;
  psd::Layer l = layer("odd");
  l.blendSignature = "MeSa";
  l.blendKey = "";  // nothing written after the signature: the record reads straight on
  d.layers = {l, layer("after")};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  ASSERT_EQ(doc->layers().size(), 2u);
  const TpsdLayer& a = *doc->layers()[0];
  EXPECT_EQ(a.blendSignature, fourCC("MeSa"));
  EXPECT_EQ(a.blendKey, 0u);
  EXPECT_EQ(a.name.str(), "odd");
  EXPECT_EQ(doc->layers()[1]->name.str(), "after");
  // A key written after another signature is not consumed: the record is read four bytes early,
  // "norm" landing in opacity, clipping, flags and filler.
  psd::Layer m = layer("early");
  m.blendSignature = "ABCD";
  m.blendKey = "norm";
  d.layers = {m};
  Doc early(psd::build(d));
  early->readAllLayerRecordInformation();
  ASSERT_EQ(early->layers().size(), 1u) << early->lastReadError().str();
  const TpsdLayer& e = *early->layers()[0];
  EXPECT_EQ(e.blendKey, 0u);
  EXPECT_EQ(e.opacity, 'n');
  EXPECT_EQ(e.clipping, 'o');
  EXPECT_EQ(e.flags, 'r');
  EXPECT_EQ(e.filler, 'm');
  EXPECT_NE(e.name.str(), "early");
}

TEST_F(Part3_1_EdgeCases, LayerMaskOfLength36Reads18FurtherBytes) {
  psd::Document d;
  psd::Layer l = layer("masked");
  Bytes mask;
  for (uint32_t v : {1u, 2u, 30u, 40u}) psd::put32(mask, v);
  mask.push_back(255), mask.push_back(4);           // default colour, flags
  mask.push_back(9), mask.push_back(200);           // real flags, real user mask background
  for (uint32_t v : {5u, 6u, 7u, 8u}) psd::put32(mask, v);  // real rectangle
  ASSERT_EQ(mask.size(), 36u);
  l.mask = mask;
  l.blocks = {{fourCC("lyid"), u32(77)}};
  psd::Layer twenty = layer("twenty");
  Bytes m20(mask.begin(), mask.begin() + 18);
  m20.push_back(0), m20.push_back(0);  // 2 padding bytes
  twenty.mask = m20;
  twenty.blocks = {{fourCC("lyid"), u32(78)}};
  d.layers = {l, twenty};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  const TpsdLayer::Mask& m = doc->layers()[0]->mask;
  EXPECT_EQ(m.length, 36u);
  EXPECT_EQ(m.top, 1);
  EXPECT_EQ(m.right, 40);
  EXPECT_EQ(m.defaultColor, 255);
  EXPECT_EQ(m.flags, 4);
  EXPECT_EQ(m.realFlags, 9);
  EXPECT_EQ(m.realUserMaskBackground, 200);
  EXPECT_EQ(m.realTop, 5);
  EXPECT_EQ(m.realRight, 8);
  EXPECT_EQ(doc->layers()[0]->layerId, 77u);  // read in step after the 36 bytes
  EXPECT_EQ(doc->layers()[1]->mask.realFlags, 0);
  EXPECT_EQ(doc->layers()[1]->layerId, 78u);
  // extra data length: the bytes consumed from the mask length on
  EXPECT_EQ(doc->layers()[0]->extraDataLength, 4u + 36 + 4 + 8 + 12 + 4);
}

TEST_F(Part3_1_EdgeCases, LsctOfLength16ReadsOnlyTheTypeAndEndsTheBlocks) {
  psd::Document d;
  psd::Layer l = layer("set", 0, 0);
  Bytes data = lsct(2);
  psd::put4(data, "norm"), psd::put4(data, "pass"), psd::put32(data, 0);  // 16 bytes
  l.blocks = {{fourCC("lsct"), data}, {fourCC("lyid"), u32(5)}};
  d.layers = {l};
  Doc doc(psd::build(d));
  doc->readAllLayerRecordInformation();
  ASSERT_EQ(doc->layers().size(), 1u);
  const TpsdLayer& s = *doc->layers()[0];
  EXPECT_EQ(s.sectionType, 2u);
  EXPECT_EQ(s.sectionBlendSignature, 0u);
  EXPECT_EQ(s.sectionBlendKey, 0u);
  ASSERT_EQ(s.additionalInfo.size(), 1u);  // "norm" is not "8BIM": the blocks end
  EXPECT_EQ(s.additionalInfo[0].length, 16u);
  EXPECT_EQ(s.layerId, 0u);  // the lyid block after it is never reached
  EXPECT_EQ(s.extraDataLength, 4u + 4 + 4 /* length byte and "set" */ + 12 + 4);
}

TEST_F(Part3_1_EdgeCases, LayerNamePaddingOf127_3_4_And128Characters) {
  struct Case {
    size_t length, pad;
  } cases[] = {{127, 0}, {3, 0}, {4, 3}, {128, 7}};
  for (const Case& c : cases) {
    psd::Document d;
    psd::Layer l = layer(std::string(c.length, 'n'));
    l.namePad = c.pad;  // exactly what the Part skips
    l.blocks = {{fourCC("lyid"), u32(42)}};
    d.layers = {l, layer("next")};
    Doc doc(psd::build(d));
    ASSERT_TRUE(doc->readAllLayerRecordInformation()) << c.length << ": " << doc->lastReadError().str();
    ASSERT_EQ(doc->layers().size(), 2u);
    EXPECT_EQ(doc->layers()[0]->name.length(), c.length);
    EXPECT_EQ(doc->layers()[0]->layerId, 42u) << c.length;  // the block right after the pad is read
    EXPECT_EQ(doc->layers()[1]->name.str(), "next") << c.length;
  }
  // With Photoshop's (and GIMP's, ag-psd's) 3 pad bytes after 128 characters the Part skips 4 too
  // many and misreads what follows (CLARIFICATIONS: keep it, never crash).
  psd::Document d;
  psd::Layer l = layer(std::string(128, 'n'));
  l.blocks = {{fourCC("lyid"), u32(42)}};
  d.layers = {l, layer("next")};
  Doc doc(psd::build(d));
  doc->readAllLayerRecordInformation();
  ASSERT_GE(doc->layers().size(), 1u);
  EXPECT_EQ(doc->layers()[0]->layerId, 0u);
}

TEST_F(Part3_1_EdgeCases, Resource1006InAThreeChannelDocumentIsSkippedWhole) {
  psd::Document d;
  Bytes names = {5, 'A', 'l', 'p', 'h', 'a'};
  d.resources = vt::cat({psd::resource(1006, "", names), psd::resource(1005, "", Bytes(16, 3))});
  Doc doc(psd::build(d));
  doc->readAllLayerRecordInformation();
  EXPECT_TRUE(doc->alphaNames().empty());
  ASSERT_EQ(doc->imageResources().size(), 2u);
  EXPECT_TRUE(doc->imageResources()[0].data.empty());  // 1006 keeps no data
  EXPECT_EQ(doc->imageResources()[1].id, 1005);
  EXPECT_EQ(doc->imageResources()[1].data, Bytes(16, 3));
}

TEST_F(Part3_1_EdgeCases, EmptyLayerSetWarningIsLeftToCompositing) {
  // The bullet's own test belongs to Part 3.5 (TpsdTextureFile); reading alone never raises the
  // bit, whose key is the Part's.
  psd::Document d;
  d.layers = withSet({});
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(bitsNow() & TpsdFileWarning::rFileEmptyLayerSet, 0u);
  EXPECT_STREQ(TpsdFileWarning::instance().key(TpsdFileWarning::rFileEmptyLayerSet),
               "s_TpsdFileWarningStrings.rFileEmptyLayerSet");
}

// --- Header, colour mode data, resources ---

TEST_F(Part3_1, HeaderFieldsColourModeDataAndDepths) {
  psd::Document d;
  d.channels = 5, d.width = 300, d.height = 7, d.depth = 16, d.mode = 3;
  d.colorModeData = {1, 2, 3};
  Bytes bytes = psd::build(d);
  memcpy(&bytes[6], "\x01\x02\x03\x04\x05\x06", 6);  // reserved bytes: kept, not checked
  Doc doc(bytes);
  ASSERT_TRUE(doc.file);
  EXPECT_EQ(doc->imageWidth(), 300u);
  EXPECT_EQ(doc->imageHeight(), 7u);
  EXPECT_EQ(doc->colorDepth(), k16Bits);
  EXPECT_EQ(doc->channels(), 5);
  EXPECT_EQ(memcmp(doc->reserved(), "\x01\x02\x03\x04\x05\x06", 6), 0);
  EXPECT_TRUE(doc->isFileEditMode());
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(doc->colorModeDataLength(), 3);
  EXPECT_EQ(doc->colorModeData(), (Bytes{1, 2, 3}));

  for (uint16_t depth : {1, 7, 32}) {
    d.depth = depth;
    Doc bad(psd::build(d));
    ASSERT_TRUE(bad.file);  // open answers 0 all the same
    EXPECT_FALSE(bad->readAllLayerRecordInformation()) << depth;
    TstringArray names;
    EXPECT_EQ(bad->getAllLayerNames(names), -1);
  }
  TpsdFile f;
  EXPECT_THROW(f.setColorDepth(12), TpsdException);
  try {
    f.setColorDepth(0);
  } catch (const TpsdException& e) {
    EXPECT_STREQ(e.what(), "Invalid color depth");
  }
}

TEST_F(Part3_1, ColourModesRaiseTheirWarningsOnceADividerIsKnown) {
  const std::pair<uint16_t, uint32_t> modes[] = {{0, 1}, {1, 2}, {2, 4}, {4, 8}, {7, 16}, {8, 32}, {9, 64}, {3, 0}, {5, 0}, {15, 0}};
  for (auto [mode, bit] : modes) {
    TpsdFileWarning::instance().clear();
    psd::Document d;
    d.mode = mode;
    d.layers = withSet({layer("x")});
    Doc doc(psd::build(d));
    doc->readAllLayerRecordInformation();
    doc->readAllLayerRecordInformation();
    EXPECT_EQ(bitsNow(), bit) << mode;
  }
}

TEST_F(Part3_1, ImageResourcesNamesSignaturesAndSpecialIds) {
  psd::Document d;
  d.channels = 5;  // two alpha channels
  Bytes names = {3, 'o', 'n', 'e', 3, 't', 'w', 'o', 9, 9, 9};  // 2 names, then 3 bytes skipped
  Bytes ids;
  psd::put32(ids, 11), psd::put32(ids, 22);
  Bytes meSa = psd::resource(2000, "", {1, 2});
  memcpy(meSa.data(), "MeSa", 4);
  d.resources = vt::cat({psd::resource(1044, "", u32(0xABCD)), psd::resource(1006, "nm", names),
                         psd::resource(1053, "", ids), meSa, psd::resource(1005, "odd", {5})});
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  const auto& r = doc->imageResources();
  ASSERT_EQ(r.size(), 5u);
  EXPECT_EQ(r[0].value1044, 0xABCDu);
  EXPECT_TRUE(r[0].data.empty());
  EXPECT_STREQ(r[1].name.data(), "nm");
  EXPECT_EQ(r[1].dataSize, 12u);  // 11 rounded up to even
  ASSERT_EQ(doc->alphaNames().size(), 2u);
  EXPECT_EQ(doc->alphaNames()[1].str(), "two");
  EXPECT_EQ(doc->alphaIdentifiers(), (std::vector<int32_t>{11, 22}));
  EXPECT_EQ(r[3].signature, fourCC("MeSa"));
  EXPECT_EQ(r[3].data, (Bytes{1, 2}));
  EXPECT_EQ(r[4].dataSize, 2u);
  EXPECT_EQ(r[4].data, (Bytes{5, 0}));
  TstringArray alpha;
  EXPECT_EQ(doc->readAlphaList(alpha), 1);
  ASSERT_EQ(alpha.size(), 2u);  // the walk reads names while the resource holds them
  EXPECT_EQ(alpha[0].str(), "one");
}

TEST_F(Part3_1, ResourceNamePadKeepsItsSignedByteRule) {
  // A name of 128 characters: 129 is odd and -127 as a signed byte, so 3 bytes are skipped.
  psd::Document d;
  Bytes entry;
  psd::put4(entry, "8BIM"), psd::put16(entry, 1005);
  entry.push_back(128);
  entry.insert(entry.end(), 128, 'r');
  entry.insert(entry.end(), 3, 0);
  psd::put32(entry, 2), entry.push_back(7), entry.push_back(8);
  d.resources = entry;
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  ASSERT_EQ(doc->imageResources().size(), 1u);
  EXPECT_EQ(doc->imageResources()[0].data, (Bytes{7, 8}));
}

TEST_F(Part3_1, AlphaListIsEmptyWithoutResource1006) {
  psd::Document d;
  Doc doc(psd::build(d));
  TstringArray alpha;
  EXPECT_EQ(doc->readAlphaList(alpha), 0);
  EXPECT_TRUE(alpha.empty());
}

// --- Layer records and blocks ---

TEST_F(Part3_1, BlendingRangesZeroLengthReadsNothingElseGreyAndPairs) {
  psd::Document d;
  psd::Layer zero = layer("zero");  // GIMP / ImageMagick / ag-psd: length 0 (CLARIFICATIONS)
  psd::Layer four = layer("four");
  for (uint32_t v = 1; v <= 10; ++v) psd::put32(four.ranges, v);  // grey pair + 4 channel pairs
  d.layers = {zero, four};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  const auto& z = doc->layers()[0]->blendingRanges;
  EXPECT_EQ(z.length, 0u);
  EXPECT_TRUE(z.channels.empty());
  EXPECT_EQ(doc->layers()[0]->name.str(), "zero");
  const auto& f = doc->layers()[1]->blendingRanges;
  EXPECT_EQ(f.length, 40u);
  EXPECT_EQ(f.compositeGreySource, 1u);
  EXPECT_EQ(f.compositeGreyDestination, 2u);
  ASSERT_EQ(f.channels.size(), 4u);
  EXPECT_EQ(f.channels[3], (std::pair<uint32_t, uint32_t>{9, 10}));
  EXPECT_EQ(doc->layers()[1]->name.str(), "four");
}

TEST_F(Part3_1, NegativeLayerCountIsTakenAbsolute) {
  psd::Document d;
  d.layers = {layer("a"), layer("b"), layer("c")};
  d.countSign = -1;
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(doc->layerCount(), 3u);
  EXPECT_EQ(doc->layers()[2]->name.str(), "c");
}

TEST_F(Part3_1, MoreThan56ChannelsThrowsToTheCaller) {
  psd::Document d;
  psd::Layer l = layer("many");
  l.channels.assign(57, psd::rawChannel(0, Bytes(2, 0)));
  d.layers = {l};
  Doc doc(psd::build(d));
  TstringArray names;
  try {
    doc->getAllLayerNames(names);
    FAIL() << "no exception";
  } catch (const TpsdException& e) {
    EXPECT_STREQ(e.what(), "Invalid information read from file");
  }
  l.channels.resize(56);
  d.layers = {l};
  Doc ok(psd::build(d));
  EXPECT_EQ(ok->getAllLayerNames(names), 0);
}

TEST_F(Part3_1, LayerBlocksKeysWarningsAndIds) {
  psd::Document d;
  psd::Layer l = layer("fx");
  const char warned[][5] = {"lrfx", "lfx2", "patt", "Anno", "blnc", "brit", "curv", "hue2", "nvrt", "post", "selc", "thrs", "lev1"};
  for (const auto& k : warned) l.blocks.push_back({fourCC(k), Bytes{1, 2, 3}});
  l.blocks.push_back({0x00687565u, Bytes{1}});    // "\0hue": the three-character key
  l.blocks.push_back({fourCC("levl"), Bytes{1}});  // not an adjustment key
  l.blocks.push_back({fourCC("hue "), Bytes{1}});  // nor this
  l.blocks.push_back({fourCC("lrfx"), Bytes{}});   // zero length: nothing read, nothing raised
  l.blocks.push_back({fourCC("lyid"), u32(99)});
  l.blocks.push_back({fourCC("luni"), Bytes{0, 0, 0, 1, 0, 'x'}});
  psd::Layer setChild = layer("in set");
  setChild.blocks = {{fourCC("patt"), Bytes{1}}};
  d.layers = withSet({l, setChild});
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  const TpsdLayer& x = *doc->layers()[1];
  EXPECT_EQ(x.layerId, 99u);
  EXPECT_EQ(x.additionalInfoCount, 19u);
  ASSERT_NE(x.block(fourCC("luni")), nullptr);
  EXPECT_EQ(x.block(fourCC("luni"))->data, (Bytes{0, 0, 0, 1, 0, 'x'}));
  EXPECT_TRUE(x.block(fourCC("lyid"))->data.empty());
  auto& w = TpsdFileWarning::instance();
  std::vector<uint32_t> expected = {2048, 65536, 131072, 262144};
  for (int i = 0; i < 10; ++i) expected.push_back(32768);
  expected.push_back(131072);  // the set's child: a type-0 layer too
  EXPECT_EQ(w.warningBits(), expected);
  EXPECT_EQ(w.messages()[0].str(), std::string("layer \"fx\" of doc.psd: layer effects are ignored"));
  // "Never" rows stay unset.
  for (uint32_t never : {128u, 256u, 512u, 1024u, 4096u, 8192u, 16384u, 524288u, 1048576u, 2097152u})
    EXPECT_EQ(w.allBits() & never, 0u);
}

TEST_F(Part3_1, WarningsOfSetRecordsAndDividersAreNotRaised) {
  psd::Document d;
  d.layers = withSet({layer("child")});
  d.layers.back().blocks.push_back({fourCC("lrfx"), Bytes{1}});   // on the set record
  d.layers.front().blocks.push_back({fourCC("lrfx"), Bytes{1}});  // on the divider
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  EXPECT_EQ(bitsNow(), 0u);
}

TEST_F(Part3_1, LayerAndSetNamesAndTheDividerName) {
  psd::Document d;
  auto inner = withSet({layer("deep")}, "inner");
  inner.back().blocks = {{fourCC("lsct"), lsct(2, "norm")}};  // closed
  std::vector<psd::Layer> children = inner;
  children.push_back(layer("side"));
  d.layers = withSet(children, "outer");
  d.layers.insert(d.layers.begin(), layer("bottom"));
  Doc doc(psd::build(d));
  TstringArray names, sets;
  ASSERT_EQ(doc->getAllLayerNames(names), 0);
  ASSERT_EQ(doc->readLayerSetNames(sets), 0);
  std::vector<std::string> n, s;
  for (auto& x : names) n.push_back(x.str());
  for (auto& x : sets) s.push_back(x.str());
  EXPECT_EQ(n, (std::vector<std::string>{"bottom", "deep", "side"}));
  EXPECT_EQ(s, (std::vector<std::string>{"inner", "outer"}));
  EXPECT_EQ(doc->sectionDividerName().str(), "</Layer group>");
  EXPECT_EQ(getLayerSetNames(doc.file.get(), sets), kSuccess);
}

// --- Global sections, positions, the composite ---

TEST_F(Part3_1, GlobalMaskAndBlocksAfterTheChannelData) {
  psd::Document d;
  d.layers = {layer("a", 3, 2)};
  d.globalMask = {1, 2, 3, 4, 5};
  d.globalBlocks = {{fourCC("Txt2"), Bytes{9, 9, 9}}, {fourCC("Patt"), Bytes(10, 1)}};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  EXPECT_EQ(doc->globalLayerMaskLength(), 5u);
  EXPECT_EQ(doc->globalLayerMask(), (Bytes{1, 2, 3, 4, 5}));
  // 8-bit documents: the Part seeks to the end of the channel data before the additional
  // information too, so it starts at the global mask's length word, which is not "8BIM": the
  // blocks are not found (as the Part's steps 7 and 8 read; 16-bit documents find theirs).
  EXPECT_EQ(doc->additionalGlobalInfoCount(), 0u);
  EXPECT_EQ(doc->endOfAdditionalInfo(), doc->endOfGlobalMask() - 4 - 5);
  EXPECT_GT(doc->endOfGlobalMask(), doc->startOfChannelData());

  d.depth = 16;
  d.layersInLr16 = true;
  for (auto& l : d.layers)
    for (auto& c : l.channels) c.data.resize(c.data.size() * 2);
  Doc deep(psd::build(d));
  ASSERT_TRUE(deep->readAllLayerRecordInformation()) << deep->lastReadError().str();
  EXPECT_EQ(deep->globalLayerMask(), (Bytes{1, 2, 3, 4, 5}));
  ASSERT_EQ(deep->additionalGlobalInfoCount(), 2u);
  EXPECT_EQ(deep->additionalGlobalInfo()[0].key, fourCC("Txt2"));
  EXPECT_EQ(deep->additionalGlobalInfo()[0].length, 4u);  // 3 raised by 4 - 3 % 4
  EXPECT_EQ(deep->additionalGlobalInfo()[1].length, 12u);  // 10 raised by 2
  EXPECT_EQ(Bytes(deep->additionalGlobalInfo()[1].data.begin(), deep->additionalGlobalInfo()[1].data.begin() + 10), Bytes(10, 1));
}

TEST_F(Part3_1, SixteenBitChannelDataEndAddsFourMinusLengthModFour) {
  // 16-bit documents with layers in the main section: the Part does not seek past the channel
  // data before the global mask, so the mask length is read at the channel data (ImageMagick's
  // documents do this; the fixture test shows their layers survive).
  psd::Document d;
  d.depth = 16;
  d.layers = {layer("a")};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation()) << doc->lastReadError().str();
  EXPECT_EQ(doc->layers().size(), 1u);
  EXPECT_EQ(doc->endOfGlobalMask(), doc->startOfChannelData() + 4 + doc->globalLayerMask().size());
}

TEST_F(Part3_1, LaterReadingsUseTheCachedPositions) {
  psd::Document d;
  d.resources = psd::resource(1005, "", Bytes(8, 1));
  d.layers = {layer("a"), layer("b")};
  Doc doc(psd::build(d));
  ASSERT_TRUE(doc->readAllLayerRecordInformation());
  uint32_t end = doc->endOfImageResources();
  EXPECT_EQ(end, 26u + 4 + 4 + 20);
  // Spoil the resources and the records on disk: a later reading only seeks past them.
  Bytes bytes = vt::readFile(doc.path);
  std::fill(bytes.begin() + 34, bytes.begin() + end, 0xEE);  // resources
  std::fill(bytes.begin() + end + 10, bytes.begin() + doc->startOfChannelData(), 0xEE);  // records
  vt::writeFile(doc.path, bytes);
  TstringArray names;
  ASSERT_EQ(doc->getAllLayerNames(names), 0) << doc->lastReadError().str();
  EXPECT_EQ(names.size(), 2u);
  EXPECT_EQ(doc->imageResources()[0].data, Bytes(8, 1));
}

TEST_F(Part3_1, CompositeRawAndRunLengthAs8And16Bits) {
  for (uint16_t depth : {8, 16}) {
    for (uint16_t compression : {0, 1}) {
      psd::Document d;
      d.depth = depth, d.width = 3, d.height = 2, d.channels = 4;
      d.compositeCompression = compression;
      const size_t bps = depth / 8, plane = 6 * bps;
      Bytes planes;
      for (uint8_t c = 0; c < 4; ++c)
        for (size_t i = 0; i < plane; ++i) planes.push_back(uint8_t(c * 40 + i));
      if (compression == 0) {
        d.composite = planes;
      } else {  // 8-bit PackBits rows (16-bit rows are the same bytes: literal packets)
        Bytes table, rows;
        for (int c = 0; c < 4; ++c)
          for (int y = 0; y < 2; ++y) {
            psd::put16(table, uint32_t(1 + 3 * bps));
            rows.push_back(uint8_t(3 * bps - 1));
            rows.insert(rows.end(), planes.begin() + long(c * plane + y * 3 * bps),
                        planes.begin() + long(c * plane + (y + 1) * 3 * bps));
          }
        d.composite = vt::cat({table, rows});
      }
      Doc doc(psd::build(d));
      TrgbaData out;
      ASSERT_EQ(doc->readFlattenedImage(out), 0) << doc->lastReadError().str();
      EXPECT_EQ(doc->compression(), compression);
      EXPECT_EQ(out.channelCount(), 3u);  // the fourth (alpha) channel is left out
      EXPECT_EQ(out.width(), 3u);
      TpixelData16& px = out.pixelData();
      EXPECT_EQ(px.compressionMethod(BLUE), compression ? RLE : RAW);
      if (compression == 1) {
        ASSERT_NE(px.compositeLenInfo(GREEN), nullptr);
        EXPECT_EQ(px.compositeLenInfo(GREEN)->size(), 2u);
      }
      if (depth == 8 || compression == 0) {  // 16-bit run-length: Part 3.2's own rule
        for (int c = 0; c < 3; ++c) {
          const uint8_t* p = px.getChannelPixPtr(PHOTOSHOP_CHANNEL(c));
          for (size_t i = 0; i < 6; ++i) {
            uint32_t expect = depth == 8 ? planes[c * plane + i]
                                         : uint32_t(planes[c * plane + 2 * i] << 8 | planes[c * plane + 2 * i + 1]);
            uint32_t got = depth == 8 ? p[i] : reinterpret_cast<const uint16_t*>(p)[i];
            EXPECT_EQ(got, expect) << depth << " " << compression << " c" << c << " i" << i;
          }
        }
      }
      // Before reading, every value is the maximum: the transparency channel keeps it.
      uint32_t t = depth == 8 ? px.getTransparencyPixelPtr()[0] : reinterpret_cast<uint16_t*>(px.getTransparencyPixelPtr())[0];
      EXPECT_EQ(t, depth == 8 ? 255u : 65535u);
    }
  }
}

TEST_F(Part3_1, CompositeOfAGreyDocumentAndUnknownCompression) {
  psd::Document d;
  d.channels = 1, d.mode = 1, d.width = 2, d.height = 2;
  d.composite = {1, 2, 3, 4};
  Doc grey(psd::build(d));
  TrgbaData out;
  ASSERT_EQ(grey->readFlattenedImage(out), 0);
  EXPECT_EQ(out.channelCount(), 1u);
  EXPECT_EQ(out.pixelData().getRedPixelPtr()[3], 4);
  EXPECT_EQ(out.pixelData().getGreenPixelPtr()[0], 255);  // never read: the maximum
  d.compositeCompression = 2;
  Doc zip(psd::build(d));
  EXPECT_EQ(zip->readFlattenedImage(out), -1);
  EXPECT_NE(zip->lastReadError().str().find("compression 2"), std::string::npos);
}

TEST_F(Part3_1, FreeFunctionsCheckTheConcreteClass) {
  struct Other : TphotoshopFile {
    int open(const TfilePath&, bool) override { return 0; }
    int create(const TfilePath&, unsigned short&, unsigned short&) override { return 0; }
    int close() override { return 0; }
  } other;
  TphotoshopFile* p = &other;
  TstringArray names;
  EXPECT_EQ(getLayerNames(p, names), kFailure);
  EXPECT_EQ(getLayerSetNames(p, names), kFailure);
  EXPECT_FALSE(closePsdFile(p));
  psd::Document d;
  d.layers = {layer("a")};
  Doc doc(psd::build(d));
  TphotoshopFile* f = doc.file.get();
  EXPECT_EQ(getLayerNames(f, names), kSuccess);
  EXPECT_TRUE(closePsdFile(f));
  EXPECT_EQ(f, doc.file.get());  // not deleted here
  EXPECT_EQ(vt::readFile(doc.path), psd::build(d));  // and nothing written
}

TEST_F(Part3_1, EveryWarningBitHasItsKeyAndACatalogueText) {
  auto& w = TpsdFileWarning::instance();
  for (uint32_t bit = 1; bit <= 8388608u; bit <<= 1) {
    const char* key = w.key(TpsdFileWarning::TpsdWarningMsg(bit));
    ASSERT_NE(key, nullptr) << bit;
    EXPECT_EQ(std::string(key).rfind("s_TpsdFileWarningStrings.r", 0), 0u);
    EXPECT_NE(voraCatalogueText(key), nullptr) << key;
  }
  EXPECT_STREQ(w.key(TpsdFileWarning::rFileNoMemoryPSDfile), "s_TpsdFileWarningStrings.rFileNoMemoryPSDfile");
  EXPECT_STREQ(w.key(TpsdFileWarning::rFileCMYKcolorMode), "s_TpsdFileWarningStrings.rFileCMYKcolorMode");
  EXPECT_EQ(w.key(TpsdFileWarning::TpsdWarningMsg(3)), nullptr);
  w.addWarning(TpsdFileWarning::rFileNoMemoryPSDfile, "", "x.psd");
  EXPECT_EQ(w.messages().back().str(), "x.psd: out of memory while reading the document");
}
