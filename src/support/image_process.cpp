// TmpImageProcess, the background image loader, and TtileList (image_process.h).
#include <vora/image_process.h>

#include <algorithm>

#include <vora/foundation/messages.h>
#include <vora/image_file.h>

namespace {

TmpImageProcess* instance = nullptr;

void release(std::deque<TimageLoadAnswer> answers) {
  for (TimageLoadAnswer& a : answers) delete a.pixelMap;
}

}  // namespace

TmpImageProcess::TmpImageProcess() { worker_ = std::thread(sImageThread, this); }

TmpImageProcess::~TmpImageProcess() {
  if (worker_.joinable()) {
    shutdownImageThread();
    worker_.join();
  }
  release(answers_.clear());
}

TmpImageProcess* TmpImageProcess::imageProcess() {
  if (!instance) instance = new TmpImageProcess;
  return instance;
}

bool TmpImageProcess::isImageProcess() { return instance != nullptr; }

void TmpImageProcess::request(const TimageLoadRequest& r) { requests_.add(r); }

void TmpImageProcess::request(const Tstring& fileName, TportRect rect) {
  TimageLoadRequest r;
  r.fileName = fileName, r.rect = rect;
  requests_.add(r);
}

TimageLoadRequest TmpImageProcess::request() { return requests_.take(); }
void TmpImageProcess::answer(TimageLoadAnswer& a) { answers_.add(a); }
TimageLoadAnswer TmpImageProcess::answer() { return answers_.take(); }
int TmpImageProcess::answers() { return answers_.count(); }

void TmpImageProcess::flushRequestQueue() {
  if (!instance) return;
  instance->requests_.clear();
  release(instance->answers_.clear());
}

void TmpImageProcess::shutdownImageThread() {
  requests_.clear();  // dropped without answers, by design
  requests_.add(TimageLoadRequest());
}

void TmpImageProcess::shutdownImageProcess() {
  if (!instance) return;
  delete instance;  // stops and joins the worker
  instance = nullptr;
}

void TmpImageProcess::sImageThread(TmpImageProcess* self) {
  for (TimageLoadRequest r = self->request(); !r.fileName.str().empty(); r = self->request()) {
    TimageLoadAnswer a;
    a.fileName = r.fileName;
    a.pixelMap = new TpixelMap;
    TimageFile f;
    if (f.identifyAndOpen(r.fileName) != 0) {
      reportErrorf(TstringId("s_TimageFileStrings.rImageFileReadFailFmt").text(), r.fileName.asChar());
    } else if (f.readPixelMap(*a.pixelMap) == 0 && int16_t(r.rect.x1 - r.rect.x0) > 0 && int16_t(r.rect.y1 - r.rect.y0) > 0) {
      a.pixelMap->zoom(r.rect);
    }
    f.close();
    self->answer(a);
    if (r.callback) r.callback(r.data);
  }
}

int TtileList::insert(const TportRect* t, unsigned index, unsigned n) {
  if (index > count() || (n && !t)) return -1;
  tiles_.insert(tiles_.begin() + index, t, t + n);
  return 0;
}

int TtileList::createAndSet(const TportRect& t, unsigned count, unsigned capacity) {
  tiles_.assign(count, t);
  tiles_.reserve(std::max(count, capacity));
  return 0;
}

bool TtileList::find(const TportRect& t, unsigned& index) const {
  auto it = std::find(tiles_.begin(), tiles_.end(), t);
  if (it == tiles_.end()) return false;
  index = unsigned(it - tiles_.begin());
  return true;
}

bool TtileList::find(const TportRect& t) const {
  unsigned i;
  return find(t, i);
}

int TtileList::remove(const TportRect& t) {
  unsigned i;
  if (!find(t, i)) return -1;
  tiles_.erase(tiles_.begin() + i);
  return 0;
}

// n tiles of a list from first, clamped to what it has (a copy: the list may be this one).
static std::vector<TportRect> slice(const std::vector<TportRect>& tiles, unsigned first, unsigned n) {
  if (first >= tiles.size()) return {};
  n = std::min<unsigned>(n, unsigned(tiles.size()) - first);
  return {tiles.begin() + first, tiles.begin() + first + n};
}

int TtileList::copy(const TtileList& other, unsigned first, unsigned n) {
  tiles_ = slice(other.tiles_, first, n);
  return 0;
}

int TtileList::catenate(const TtileList& other, unsigned first, unsigned n) {
  const std::vector<TportRect> from = slice(other.tiles_, first, n);
  tiles_.insert(tiles_.end(), from.begin(), from.end());
  return 0;
}
