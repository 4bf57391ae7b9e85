#include "platform/graph/intelligent_connect.h"

#include <cstring>
#include <string>
#include <vector>

#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/graph/filter_mapper.h"
#include "platform/graph/filter_registry.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/win32/codepage.h"
#include "platform/win32/registry.h"

namespace platform_internal {

namespace {

// Deeper chains than this are a loop of filters that take each other's output.
constexpr int kMaxChain = 8;

// The extension with its point, from the part after the last separator.
std::string ExtensionOf(LPCWSTR fileName) {
  const std::wstring name(fileName);
  const std::size_t slash = name.find_last_of(L"/\\");
  const std::size_t dot = name.find_last_of(L'.');
  if (dot == std::wstring::npos || (slash != std::wstring::npos && dot < slash)) return {};
  return WideToAnsi(name.substr(dot));
}

bool SourceFilterOf(const std::string& extension, CLSID* clsid) {
  HKEY key = nullptr;
  const std::string path = "Media Type\\Extensions\\" + extension;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return false;
  char text[64] = {};
  DWORD size = sizeof text - 1;
  DWORD type = REG_NONE;
  const LONG error = RegQueryValueExA(key, "Source Filter", nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(key);
  return error == ERROR_SUCCESS && type == REG_SZ && GuidFromString(text, clsid);
}

std::vector<RegisteredPinType> TypesOf(IPin* pin) {
  std::vector<RegisteredPinType> types;
  ComPtr<IEnumMediaTypes> each;
  if (FAILED(pin->EnumMediaTypes(each.PutAddress())) || !each) return types;
  AM_MEDIA_TYPE* type = nullptr;
  ULONG fetched = 0;
  while (types.size() < 64 && each->Next(1, &type, &fetched) == S_OK && fetched == 1) {
    if (type == nullptr) break;
    types.push_back({type->majortype, type->subtype});
    ClearMediaType(type);
    CoTaskMemFree(type);
    type = nullptr;
  }
  return types;
}

std::vector<ComPtr<IPin>> FreePins(IBaseFilter* filter, bool outputs) {
  std::vector<ComPtr<IPin>> pins;
  for (ComPtr<IPin>& pin : PinsOf(filter)) {
    if (IsOutputPin(pin.Get()) == outputs && !PeerOf(pin.Get())) pins.push_back(std::move(pin));
  }
  return pins;
}

HRESULT Render(IGraphBuilder* graph, IPin* output, int depth);

// Every free output of a filter just connected: S_OK for all, a partial
// render for some, a failure for none. A filter without outputs renders.
HRESULT RenderOutputs(IGraphBuilder* graph, IBaseFilter* filter, int depth) {
  const std::vector<ComPtr<IPin>> outputs = FreePins(filter, true);
  if (outputs.empty()) return S_OK;
  std::size_t rendered = 0;
  bool partial = false;
  for (const ComPtr<IPin>& pin : outputs) {
    const HRESULT hr = Render(graph, pin.Get(), depth + 1);
    if (SUCCEEDED(hr)) ++rendered;
    if (hr == VFW_S_PARTIAL_RENDER) partial = true;
  }
  if (rendered == 0) return VFW_E_CANNOT_RENDER;
  return rendered == outputs.size() && !partial ? S_OK : VFW_S_PARTIAL_RENDER;
}

// One candidate: made, added, connected on its first input that takes the
// pin, and its outputs rendered; taken out again if any step fails.
HRESULT TryFilter(IGraphBuilder* graph, IPin* output, const RegisteredFilter& candidate, int depth) {
  ComPtr<IBaseFilter> filter;
  HRESULT hr = CoCreateInstance(candidate.clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, filter.PutVoid());
  if (FAILED(hr)) return hr;
  if (!filter) return E_UNEXPECTED;
  hr = graph->AddFilter(filter.Get(), candidate.name.c_str());
  if (FAILED(hr)) return hr;
  hr = VFW_E_CANNOT_CONNECT;
  for (const ComPtr<IPin>& input : FreePins(filter.Get(), false)) {
    if (SUCCEEDED(graph->ConnectDirect(output, input.Get(), nullptr))) {
      hr = RenderOutputs(graph, filter.Get(), depth);
      break;
    }
  }
  if (FAILED(hr)) graph->RemoveFilter(filter.Get());  // disconnects it too
  return hr;
}

HRESULT Render(IGraphBuilder* graph, IPin* output, int depth) {
  if (depth > kMaxChain) return VFW_E_CANNOT_RENDER;
  FilterQuery query;
  query.minimumMerit = MERIT_DO_NOT_USE + 1;
  query.inputNeeded = true;
  query.inputTypes = TypesOf(output);  // none offered: any filter with an input pin
  for (const RegisteredFilter& candidate : MatchingFilters(query)) {
    const HRESULT hr = TryFilter(graph, output, candidate, depth);
    if (SUCCEEDED(hr)) return hr;
  }
  return VFW_E_CANNOT_RENDER;
}

}  // namespace

HRESULT AddSourceFilterByExtension(IGraphBuilder* graph, LPCWSTR fileName, LPCWSTR filterName,
                                   IBaseFilter** filter) {
  if (filter != nullptr) *filter = nullptr;
  if (graph == nullptr || fileName == nullptr || filter == nullptr) return E_POINTER;
  CLSID clsid{};
  const std::string extension = ExtensionOf(fileName);
  if (extension.empty() || !SourceFilterOf(extension, &clsid)) return VFW_E_UNKNOWN_FILE_TYPE;

  ComPtr<IBaseFilter> source;
  HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, source.PutVoid());
  if (FAILED(hr)) return hr;
  const auto file = Query<IFileSourceFilter>(source.Get(), IID_IFileSourceFilter);
  if (!file) return E_NOINTERFACE;
  hr = graph->AddFilter(source.Get(), filterName != nullptr ? filterName : fileName);
  if (FAILED(hr)) return hr;
  hr = file->Load(fileName, nullptr);
  if (FAILED(hr)) {
    graph->RemoveFilter(source.Get());
    return hr;
  }
  *filter = source.Detach();
  return S_OK;
}

HRESULT RenderPin(IGraphBuilder* graph, IPin* output) {
  if (graph == nullptr || output == nullptr) return E_POINTER;
  if (!IsOutputPin(output)) return VFW_E_INVALID_DIRECTION;
  if (PeerOf(output)) return VFW_E_ALREADY_CONNECTED;
  return Render(graph, output, 0);
}

HRESULT RenderFileByExtension(IGraphBuilder* graph, LPCWSTR fileName) {
  ComPtr<IBaseFilter> source;
  const HRESULT hr = AddSourceFilterByExtension(graph, fileName, nullptr, source.PutAddress());
  if (FAILED(hr)) return hr;
  const HRESULT rendered = RenderOutputs(graph, source.Get(), 0);
  if (FAILED(rendered)) graph->RemoveFilter(source.Get());
  return rendered;
}

}  // namespace platform_internal
