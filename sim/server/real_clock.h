// The kernel's monotonic clock, asked without the C library: a test program that defines clock_gettime to make time fly
// must not make the simulator's delays fly with it.
#pragma once

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <chrono>

namespace kivosim {

struct RealClock {
  using duration = std::chrono::nanoseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<RealClock>;
  static constexpr bool is_steady = true;

  static time_point now() noexcept {
    timespec time{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
    return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
  }
};

using RealTimer = boost::asio::basic_waitable_timer<RealClock>;

}  // namespace kivosim
