# Finds what the project builds on. All of it are the system's packages, but for cpr: `scripts/bootstrap` keeps one in
# a cache folder where the system has none, and upstream's sources are fetched only where that was never run.
find_package(Threads REQUIRED)
find_package(CURL 7.88 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto SSL)
find_package(jsoncpp REQUIRED)
find_package(Boost 1.74 REQUIRED)

include(CMakeFindDependencyMacro)  # cpr's own configuration file uses it without including it
find_package(cpr CONFIG QUIET
  HINTS "$ENV{VARNKIVO_CACHE}/cpr" /var/cache/varnkivo/cpr "$ENV{HOME}/.cache/varnkivo/cpr")
if(NOT cpr_FOUND)
  message(STATUS "cpr is not installed (scripts/bootstrap does that): fetching its sources")
  include(FetchContent)
  set(CPR_FORCE_USE_SYSTEM_CURL ON)
  set(CPR_BUILD_TESTS OFF)
  set(BUILD_SHARED_LIBS OFF)
  FetchContent_Declare(cpr GIT_REPOSITORY https://github.com/libcpr/cpr.git GIT_TAG 1.12.0 GIT_SHALLOW ON)
  FetchContent_MakeAvailable(cpr)
endif()
