// Small pieces shared by the graph manager and the sink filters: enumerators,
// media type copies for callers, and pin walks. Everything sits in a
// namespace of its own, because the module loaded into the process has
// classes of the same well-known names (CEnumPins and the like) and an
// exported name here would take the place of the module's.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/enum_snapshot.h"
#include "platform/graph/strmif.h"
#include "platform/com/unknwn.h"

namespace platform_internal {

// Frees a type's format block and pUnk, as a caller of
// ConnectionMediaType must, and zeroes the type.
void ClearMediaType(AM_MEDIA_TYPE* type);

// `iid` on the object, or null. (A ComPtr filled through PutVoid holds the
// pointer only once the full expression has ended, so conditions use this.)
template <class T>
ComPtr<T> Query(IUnknown* object, REFIID iid) {
  ComPtr<T> result;
  if (object != nullptr) object->QueryInterface(iid, result.PutVoid());
  return result;
}

// The object's identity: its IUnknown, with a reference; null for null.
ComPtr<IUnknown> IdentityOf(IUnknown* object);

// All pins of a filter, in its order; empty when it has none or will not say.
std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter);

// The filter that owns `pin`, with a reference; null if the pin will not say.
ComPtr<IBaseFilter> OwnerOf(IPin* pin);

// The pin's peer, or null.
ComPtr<IPin> PeerOf(IPin* pin);

bool IsOutputPin(IPin* pin);

}  // namespace platform_internal
