#pragma once

namespace marigold {

/// The base of every interface: what has an identity is neither copied nor moved, and may be
/// destroyed through any of its bases.
class Pinned {
 public:
  Pinned() = default;
  Pinned(const Pinned&) = delete;
  Pinned& operator=(const Pinned&) = delete;
  virtual ~Pinned() = default;
};

}  // namespace marigold
