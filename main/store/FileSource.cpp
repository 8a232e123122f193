#include "store/FileSource.h"

#include <utility>

namespace marigold {

FileSource::FileSource(EventLoop& loop, EventStreamSource& streams, Origin origin,
                       WatchCoalescer::BatchWork work)
    : loop_(loop),
      reader_(origin.worker, loop, std::move(origin.reader)),
      events_(loop, std::move(work)),
      // Called on the watcher's thread; only the hop to the main loop happens there.
      watcher_(streams, std::move(origin.directory),
               [&loop, submit = lifetime_.guard([this](const WatchBatch& batch) {
                 events_.submit(batch);
               })](const WatchBatch& batch) { loop.post([submit, batch] { submit(batch); }); }) {}

void FileSource::startWatcher() {
  watchIsNew_ = watcher_.start() || watchIsNew_;
}

void FileSource::stopWatcher() {
  watcher_.stop();
  events_.cancel();
}

bool FileSource::isOutFor(Seconds length) const {
  return !askedAt_.empty() && loop_.now() - askedAt_.front() >= length;
}

void FileSource::fetch(Date now, Answer answer) {
  ask([now](UsageProvider& reader) { return reader.fetch(now); }, std::move(answer));
}

void FileSource::fetch(const WatchBatch& batch, Date now, Answer answer) {
  const bool mustRescan = batch.mustRescan && !watchIsNew_;
  watchIsNew_ = false;
  ask(
      [mustRescan, batch, now](UsageProvider& reader) {
        if (batch.mustRescan) {
          return mustRescan ? reader.rescan(now) : reader.fetch(now);
        }
        return reader.fetch(batch.paths, now);
      },
      std::move(answer));
}

template <class Question>
void FileSource::ask(Question question, Answer answer) {
  askedAt_.push_back(loop_.now());
  reader_.ask(
      [question = std::move(question)](UsageProvider& reader) {
        ProviderSnapshot snapshot = question(reader);
        return Reading(std::move(snapshot), reader.takesBack());
      },
      lifetime_.guard([this, answer = std::move(answer)](Reading reading) {
        askedAt_.pop_front();
        askAgainAt(reading.snapshot.soonestReset().value_or(distantPast));
        answer(std::move(reading));
      }));
}

void FileSource::askAgainAt(Date reset) {
  const Seconds left = reset - loop_.date();
  reset_ = left > Seconds{0} ? loop_.callAfter(left, [this] { events_.submit({}); }) : Timer();
}

void FileSource::forgetCache() {
  reader_.tell([](UsageProvider& reader) { reader.forgetCache(); });
}

}  // namespace marigold
