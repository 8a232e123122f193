#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "base/EventLoop.h"
#include "model/ProviderSnapshot.h"
#include "store/Publication.h"

namespace marigold {

/// A piece of the store's work in flight, and what it has of the answers it waits for.
struct SideTask {
  enum class Kind : std::uint8_t { refresh, userRefresh, claudeRetry };
  Kind kind = Kind::refresh;
  int generation = 0;        ///< of the engine, when this started
  bool sampledRead = false;  ///< Claude was to be read when this started
  std::array<std::optional<Answer>, allCases<ProviderID>.size()> answers;  ///< by provider
  std::set<ProviderID> missing;                                            ///< whose answer is out
  Timer patience;
  Work done;

  [[nodiscard]] std::optional<Answer>& answer(ProviderID provider) {
    return answers.at(static_cast<std::size_t>(provider));
  }
};

/// The work in flight. It is owned here, and what waits for answers holds it weakly: once it is
/// dropped here, answers are on their own.
class SideTasks {
 public:
  using Task = std::shared_ptr<SideTask>;

  Task begin(SideTask::Kind kind, int generation, Work done) {
    tasks_.push_back(std::make_shared<SideTask>());
    tasks_.back()->kind = kind;
    tasks_.back()->generation = generation;
    tasks_.back()->done = std::move(done);
    return tasks_.back();
  }
  template <class Which>
  void end(const Which& which) {
    std::erase_if(tasks_, [&](const Task& task) { return which(*task); });
  }
  [[nodiscard]] bool has(SideTask::Kind kind) const {
    return std::ranges::any_of(tasks_, [&](const Task& task) { return task->kind == kind; });
  }
  /// Drops the answers of `provider` that wait for those of others; whether there were some.
  bool forget(ProviderID provider) {
    bool had = false;
    for (const Task& task : tasks_) {
      had |= std::exchange(task->answer(provider), std::nullopt).has_value();
    }
    return had;
  }

 private:
  std::vector<Task> tasks_;
};

}  // namespace marigold
