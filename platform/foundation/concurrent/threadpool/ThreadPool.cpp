#include "foundation/concurrent/threadpool/ThreadPool.hpp"

namespace foundation::concurrent::threadpool {

ThreadPool::~ThreadPool() = default;

}  // namespace foundation::concurrent::threadpool
