// The NetlibRecorder seam: while one is installed, the wired netlib functions
// record their calls and answer chosen results instead of acting.
#include <atomic>
#include <utility>

#include "host_internal.h"

namespace qira::host {

namespace {

std::atomic<NetlibRecorder*> installed_recorder{nullptr};

}  // namespace

NetlibRecorder* internal::current_netlib_recorder() {
  return installed_recorder.load();
}

NetlibRecorder::NetlibRecorder() {
  previous_ = installed_recorder.exchange(this);
}

NetlibRecorder::~NetlibRecorder() {
  installed_recorder.store(previous_);
}

void NetlibRecorder::set_result(const std::string& function, bool result) {
  std::lock_guard<std::mutex> lock(mutex_);
  results_.emplace_back(function, result);
}

std::vector<NetlibCall> NetlibRecorder::calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

void NetlibRecorder::clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.clear();
}

bool NetlibRecorder::record(NetlibCall call) {
  std::lock_guard<std::mutex> lock(mutex_);
  bool result = true;
  for (auto it = results_.rbegin(); it != results_.rend(); ++it) {
    if (it->first == call.function) {
      result = it->second;
      break;
    }
  }
  calls_.push_back(std::move(call));
  return result;
}

}  // namespace qira::host
