// The graph manager behind CLSID_FilterGraph: holds the filters, connects
// pins, moves the graph through stopped, paused and running with a clock,
// queues the filters' events, and passes IMediaSeeking to the source.
//
// Its faces: IFilterGraph and IGraphBuilder (Connect connects directly
// without a type; rendering and the other building calls are E_NOTIMPL),
// IMediaControl, IMediaEvent, IMediaEventSink, IMediaFilter and
// IMediaSeeking. Choices where the platform leaves room:
//   - A taken filter name gets " 0001", " 0002", ... and VFW_S_DUPLICATE_NAME;
//     a null or empty name counts as "Filter".
//   - EnumFilters lists the filters in the order they were added, as they
//     stood when the enumerator was made.
//   - Renderers are the filters whose IAMFilterMiscFlags (asked once, in
//     AddFilter) says AM_FILTER_MISC_FLAGS_IS_RENDERER, and those without
//     it that have input pins and no output pins. Only renderers with a
//     connected input pin are waited for.
//   - State changes reach the filters downstream first, following the pin
//     connections. A Pause out of stopped that a filter refuses stops the
//     graph again and returns the refusal.
//   - WaitForCompletion, when the graph stops under it, returns
//     VFW_E_WRONG_STATE rather than waiting on.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"

namespace platform_internal {

// The class's creation function for the platform's class table.
HRESULT CreateFilterGraph(IUnknown* outer, REFIID riid, void** ppv);

}  // namespace platform_internal
