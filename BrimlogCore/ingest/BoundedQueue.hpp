#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

namespace brimlog {

/// A hand-over of items from several producer threads to one consumer, holding at most
/// `capacity` items, so producers cannot run arbitrarily far ahead of the consumer and memory
/// stays flat however much there is to do.
///
/// The consumer pops until every producer has said it is done and the queue is drained. `stop`
/// ends a pass that failed: producers blocked on a full queue wake up, their items are dropped,
/// and they see `stopped()` to finish early.
///
///     BoundedQueue<Output> queue{16};
///     queue.addProducers(2);              // then each producer: push(...)..., producerDone()
///     while (auto item = queue.pop()) consume(*item);
template <typename T>
class BoundedQueue {
 public:
  explicit BoundedQueue(size_t capacity) : capacity_(capacity) {}

  /// Waits for room; false when the queue was stopped, and the item is then dropped.
  bool push(T item) {
    std::unique_lock lock{mutex_};
    notFull_.wait(lock, [&] { return stopped_ || items_.size() < capacity_; });
    if (stopped_) return false;
    items_.push_back(std::move(item));
    notEmpty_.notify_one();
    return true;
  }

  /// The next item; nothing once every producer is done and the queue is drained.
  std::optional<T> pop() {
    std::unique_lock lock{mutex_};
    notEmpty_.wait(lock, [&] { return !items_.empty() || producers_ == 0; });
    if (items_.empty()) return std::nullopt;
    T item = std::move(items_.front());
    items_.pop_front();
    notFull_.notify_one();
    return item;
  }

  void addProducers(size_t count) {
    std::lock_guard lock{mutex_};
    producers_ += count;
  }

  void producerDone() {
    std::lock_guard lock{mutex_};
    --producers_;
    notEmpty_.notify_all();
  }

  void stop() {
    std::lock_guard lock{mutex_};
    stopped_ = true;
    notFull_.notify_all();
  }

  bool stopped() {
    std::lock_guard lock{mutex_};
    return stopped_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable notFull_;
  std::condition_variable notEmpty_;
  std::deque<T> items_;
  size_t capacity_;
  size_t producers_ = 0;
  bool stopped_ = false;
};

}  // namespace brimlog
