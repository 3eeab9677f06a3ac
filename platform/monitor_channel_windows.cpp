#include "platform/monitor_channel.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstring>
#include <memory>

namespace scadastore {
namespace {

constexpr const char* kMappingName = "message_mem";
constexpr UINT kAnswerTimeoutMs = 5000;

struct CloseMapping {
  void operator()(HANDLE mapping) const { CloseHandle(mapping); }
};
struct UnmapView {
  void operator()(void* view) const { UnmapViewOfFile(view); }
};

// The window published at the start of the monitor's mapping, null when there is none.
HWND PublishedWindow() {
  std::unique_ptr<void, CloseMapping> mapping(OpenFileMappingA(FILE_MAP_WRITE, TRUE, kMappingName));
  if (!mapping) return nullptr;
  std::unique_ptr<void, UnmapView> view(
      MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, kMonitorBlockSize));
  if (!view) return nullptr;
  HWND window;
  std::memcpy(&window, view.get(), sizeof window);
  return window;
}

}  // namespace

void NotifyMonitorWindow(const char* text) {
  HWND window = PublishedWindow();
  if (window == nullptr || !IsWindow(window)) return;
  // Synchronous: the monitor reads the text from this process before it
  // answers. A hung monitor is given up after the time bound.
  SendMessageTimeoutA(window, kMonitorMessage, kMonitorWParam, reinterpret_cast<LPARAM>(text),
                      SMTO_BLOCK | SMTO_ABORTIFHUNG, kAnswerTimeoutMs, nullptr);
}

}  // namespace scadastore
