// Malformed Photoshop documents: truncations, lengths and counts that lie, channel data that
// overruns or does not inflate, sizes the file cannot back, memory exhaustion. Each gets the call's
// documented failure result, never a crash (the suite also runs under ASan and UBSan; random
// mutations of real documents are fuzz_psd's part).
#include <gtest/gtest.h>
#include <vora/photoshop.h>

#include <chrono>
#include <fstream>

#include "foundation/status.h"
#include "support/psd_builder.h"
#include "support/test_support.h"

using namespace ktPhotoshop;
namespace psd = vt::psd;
using vt::Bytes;

namespace {

const char* const kDocs[] = {"agpsd_layers_rle.psd", "agpsd_layers_zip.psd", "im_cmyk8_layers_rle.psd",
                             "im_gray8_layers_rle.psd", "im_rgb16_layers_rle.psd"};

// Every reading call on the file, every channel decoded. Returns what the calls answered.
struct Answers {
  int open = 0, records = 0, names = -2, channels = -2, composite = -2;
  std::string error;  // lastReadError after the calls
};

void decodeAll(TpixelData16& px) {
  for (PHOTOSHOP_CHANNEL id : px.channelListArray()) {
    const Tchannel* c = px.channel(id);
    const uint8_t* p = px.getChannelPixPtr(id);
    if (c->sampleCount) {
      ASSERT_NE(p, nullptr);
    }
  }
}

Answers readEverything(const std::string& path) {
  Answers a;
  TphotoshopFile* f = nullptr;
  if (openPsdFile(path.c_str(), f, true) != kSuccess) return a;
  std::unique_ptr<TpsdFile> doc(static_cast<TpsdFile*>(f));
  a.open = 1;
  auto note = [&] {  // the first failure's reason, kept also as the thread's status
    if (!doc->lastReadError().isEmpty()) {
      EXPECT_EQ(vora::lastStatus().text(), doc->lastReadError().str());
      EXPECT_EQ(vora::lastStatus().code(), doc->lastReadErrorCode());
    }
    if (a.error.empty()) a.error = doc->lastReadError().str();
  };
  try {
    a.records = doc->readAllLayerRecordInformation();
    note();
    TstringArray names;
    a.names = doc->getAllLayerNames(names);
    doc->readLayerSetNames(names);
    doc->readAlphaList(names);
    a.channels = doc->readAllChannelData();
    note();
    if (a.channels == 0)
      for (auto& l : doc->layers()) decodeAll(l->pixels);
    TrgbaData composite;
    a.composite = doc->readFlattenedImage(composite);
    note();
    if (a.composite == 0) decodeAll(composite.pixelData());
  } catch (const TpsdException&) {
  }
  return a;
}

psd::Layer smallLayer(const std::string& name, uint8_t value = 50) {
  psd::Layer l;
  l.bottom = 2, l.right = 2;
  l.name = name;
  for (int16_t id : {-1, 0, 1, 2}) l.channels.push_back(psd::rawChannel(id, Bytes(4, value)));
  return l;
}

struct File {
  vt::TempDir dir;
  std::string path = dir.path("h.psd");
  std::unique_ptr<TpsdFile> doc;
  explicit File(const Bytes& b) {
    vt::writeFile(path, b);
    TphotoshopFile* f = nullptr;
    if (openPsdFile(path.c_str(), f, true) == kSuccess) doc.reset(static_cast<TpsdFile*>(f));
  }
};

}  // namespace

TEST(PsdMalformed, TruncatedAtEveryLengthGivesTheFailureResults) {
  vt::TempDir dir;
  const std::string path = dir.path("cut.psd");
  for (const char* name : kDocs) {
    Bytes whole = vt::readFile(VORA_TEST_DATA "/psd/" + std::string(name));
    Answers full = readEverything(VORA_TEST_DATA "/psd/" + std::string(name));
    ASSERT_TRUE(full.records && full.names == 0 && full.channels == 0 && full.composite == 0) << name;
    for (size_t n = 0; n < whole.size(); n += n < 1024 ? 1 : 7) {
      vt::writeFile(path, Bytes(whole.begin(), whole.begin() + long(n)));
      Answers a = readEverything(path);
      EXPECT_EQ(a.open, n >= 6) << name << " at " << n;
      // The composite ends the file (CMYK's fourth channel, which is not read, comes after it).
      bool cmyk = std::string(name).find("cmyk") != std::string::npos;
      if (n + 2 <= whole.size() && !cmyk) {
        EXPECT_EQ(a.composite, a.open ? -1 : -2) << name << " at " << n;
      }
      if (n < 26) {
        EXPECT_FALSE(a.records) << name << " at " << n;
        EXPECT_EQ(a.names, a.open ? -1 : -2) << name << " at " << n;
      }
    }
  }
}

TEST(PsdMalformed, RunLengthRowTablesThatOverrunAndZipThatDoesNotInflate) {
  psd::Document d;
  psd::Layer l = smallLayer("bad");
  l.bottom = 4, l.right = 8;
  Bytes samples(32, 7);
  l.channels = {psd::rleChannel(0, 8, 4, samples), psd::rleChannel(1, 8, 4, samples)};
  l.channels[0].data[1] = 0xFF, l.channels[0].data[0] = 0xFF;  // first row: 65535 bytes
  psd::Channel zip;
  zip.id = 2, zip.compression = 2, zip.data = {1, 2, 3, 4, 5, 6};
  psd::Channel predicted = zip;
  predicted.id = -1, predicted.compression = 3;
  l.channels.push_back(zip), l.channels.push_back(predicted);
  d.layers = {l};
  File f(psd::build(d));
  ASSERT_EQ(f.doc->readAllChannelData(), 0) << f.doc->lastReadError().str();
  TpixelData16& px = f.doc->layers()[0]->pixels;
  const uint8_t* red = px.getRedPixelPtr();
  ASSERT_NE(red, nullptr);  // rows cut at the data's end; the rest stays zero
  EXPECT_EQ(px.getGreenPixelPtr()[31], 7);  // the honest channel next to it
  EXPECT_FALSE(px.decodeChannel(BLUE));
  EXPECT_EQ(px.getBluePixelPtr()[0], 0);  // default values where ZIP failed
  EXPECT_EQ(px.getTransparencyPixelPtr()[0], 255);
}

TEST(PsdMalformed, DepthEightWithSixteenBitData) {
  psd::Document d;
  d.width = 4, d.height = 2;
  psd::Layer l = smallLayer("wide");
  for (auto& c : l.channels) c.data.resize(c.data.size() * 2, 0xAB);  // 16-bit samples
  d.layers = {l};
  d.composite.assign(size_t(4) * 2 * 3 * 2, 0x11);  // twice what 8 bits need
  File f(psd::build(d));
  ASSERT_EQ(f.doc->readAllChannelData(), 0) << f.doc->lastReadError().str();
  decodeAll(f.doc->layers()[0]->pixels);
  EXPECT_EQ(f.doc->layers()[0]->pixels.getRedPixelPtr()[3], 50);  // the first w x h bytes
  TrgbaData c;
  ASSERT_EQ(f.doc->readFlattenedImage(c), 0);
  EXPECT_EQ(c.pixelData().getBluePixelPtr()[7], 0x11);
}

// Every document of tests/data/psd/bad (lengths and counts past the end of the file, sizes the
// file cannot back) gets from each reading call the answer expected.tsv gives, with a reason
// naming what was wrong (or none, where the damage is harmless: a layer 0 wide and 788 million
// rows high), in well under a second: nothing is allocated by what a header declares.
TEST(PsdMalformed, EveryDamagedDocumentGetsItsAnswers) {
  std::ifstream list(VORA_TEST_DATA "/psd/bad/expected.tsv");
  std::string file, reason;
  Answers want;
  int files = 0;
  while (list >> file >> want.records >> want.names >> want.channels >> want.composite &&
         std::getline(list >> std::ws, reason)) {
    auto t0 = std::chrono::steady_clock::now();
    Answers a = readEverything(VORA_TEST_DATA "/psd/bad/" + file);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(1)) << file;
    EXPECT_EQ(std::vector<int>({a.open, a.records, a.names, a.channels, a.composite}),
              std::vector<int>({1, want.records, want.names, want.channels, want.composite})) << file;
    if (reason == "none") {  // damage the reader may accept, as long as nothing is sized from it
      EXPECT_TRUE(a.error.empty()) << file << ": " << a.error;
    } else {
      EXPECT_NE(a.error.find(reason == "-" ? "" : reason), std::string::npos) << file << ": " << a.error;
      EXPECT_FALSE(a.error.empty()) << file;
    }
    ++files;
  }
  EXPECT_EQ(files, 12);
}

// Compositing from the layers sizes the document by its header alone: a small file declaring
// 30000 x 30000 is refused at once, not composited.
TEST(PsdMalformed, CompositeHeldToWhatTheFileCouldHold) {
  TphotoshopFile* f = nullptr;
  ASSERT_EQ(openPsdFile(VORA_TEST_DATA "/psd/bad/composite-30000-square-from-a-row-table.psd", f, true), kSuccess);
  std::unique_ptr<TpsdFile> doc(static_cast<TpsdFile*>(f));
  TrgbaData c;
  EXPECT_EQ(doc->readFlattenedImage(c, true), -1);
  EXPECT_NE(doc->lastReadError().str().find("cannot come from a file of"), std::string::npos) << doc->lastReadError().str();
}

TEST(PsdMalformed, MemoryExhaustionRaisesNoMemoryWarning) {
  // The allocation limit (VORA_MAX_ALLOC_MB) is read once per process: a child vimg with 1 MiB.
  psd::Document d;
  d.colorModeData.assign(3u << 20, 1);
  d.layers = {smallLayer("a")};
  vt::TempDir dir;
  vt::writeFile(dir.path("big.psd"), psd::build(d));
  vt::ScopedEnv limit("VORA_MAX_ALLOC_MB", "1");
  std::string out;
  EXPECT_EQ(vt::vimg("psd info " + dir.path("big.psd"), &out), 1);
  EXPECT_NE(out.find("warning: big.psd: out of memory while reading the document"), std::string::npos) << out;
}
