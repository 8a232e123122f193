#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/EventLoop.h"
#include "base/Worker.h"
#include "model/UsageProvider.h"
#include "ports/EventStream.h"
#include "store/FileWatching.h"

namespace marigold {

/// One provider whose readings lie in files: its reader on a worker, the watcher on its directory,
/// and the pace at which what the watcher sees is read, and what is told anew when a window resets.
/// Lives on the main loop.
class FileSource {
 public:
  struct Reading {
    /// Not explicit: most readings take nothing back.
    Reading(ProviderSnapshot it, bool back = false) : snapshot(std::move(it)), takesBack(back) {}
    ProviderSnapshot snapshot;
    bool takesBack;  ///< a reading captured later, too
  };
  using Answer = std::function<void(Reading)>;
  /// What a provider brings. The worker must outlive the source.
  struct Origin {
    Executor& worker;  ///< runs the reader, and nothing else that may block
    std::unique_ptr<UsageProvider> reader;
    std::string directory;  ///< watched with everything below it
  };

  /// `work` is asked to read what the watcher saw.
  FileSource(EventLoop& loop, EventStreamSource& streams, Origin origin,
             WatchCoalescer::BatchWork work);

  /// Begins to watch. Does nothing while watching; stays idle when the system refuses.
  void startWatcher();
  /// Ends the watch and drops what it saw.
  void stopWatcher();

  /// A question was asked `length` ago or earlier and has no answer yet.
  [[nodiscard]] bool isOutFor(Seconds length) const;
  /// The regular read; `answer` is called on the main loop.
  void fetch(Date now, Answer answer);
  /// Reads what `batch` names. The first batch after a watch began may only say that it stands, so
  /// that it asks for no more than the regular read.
  void fetch(const WatchBatch& batch, Date now, Answer answer);
  /// Forgets every reading as soon as what is being read is done.
  void forgetCache();

 private:
  template <class Question>
  void ask(Question question, Answer answer);
  // What is told may change by time alone when a window of it resets.
  void askAgainAt(Date reset);

  EventLoop& loop_;
  Lifetime lifetime_;
  Isolated<UsageProvider> reader_;
  WatchCoalescer events_;
  CodexWatcher watcher_;
  Timer reset_;
  bool watchIsNew_ = false;      // nothing was delivered since it began
  std::deque<Instant> askedAt_;  // of the questions that are out; they are answered in order
};

}  // namespace marigold
