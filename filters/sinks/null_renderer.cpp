#include "filters/sinks/null_renderer.h"

#include <new>

CUnknown* CNullRenderer::CreateInstance(IUnknown* outer, HRESULT* result) {
  if (outer != nullptr) {
    if (result != nullptr) *result = CLASS_E_NOAGGREGATION;
    return nullptr;
  }
  auto* renderer = new (std::nothrow) CNullRenderer();
  if (result != nullptr) *result = renderer != nullptr ? S_OK : E_OUTOFMEMORY;
  return renderer;
}
