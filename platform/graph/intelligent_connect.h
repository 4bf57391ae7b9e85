// The graph manager's graph building: a source filter found by a file's
// extension, and an output pin rendered through registered filters chosen
// by the filter mapper, highest merit first.
#pragma once

#include "platform/graph/strmif.h"

namespace platform_internal {

// The class registered as "Source Filter" under
// HKEY_CLASSES_ROOT\Media Type\Extensions\<ext> for the file's extension,
// made, added to the graph (under `filterName`, else the file's name) and
// loaded with the file. VFW_E_UNKNOWN_FILE_TYPE when no class is
// registered for the extension; a filter that fails to load is taken out
// of the graph again, with its code.
HRESULT AddSourceFilterByExtension(IGraphBuilder* graph, LPCWSTR fileName, LPCWSTR filterName,
                                   IBaseFilter** filter);

// Connects an unconnected output pin to the first registered filter, by
// merit above MERIT_DO_NOT_USE, that takes one of its media types, and
// renders that filter's output pins in turn; a filter without output pins
// ends the chain. S_OK when every stream was rendered, VFW_S_PARTIAL_RENDER
// when some were, VFW_E_CANNOT_RENDER when none could be (filters tried on
// the way are taken out again).
HRESULT RenderPin(IGraphBuilder* graph, IPin* output);

// AddSourceFilterByExtension, then every output pin of the source rendered.
HRESULT RenderFileByExtension(IGraphBuilder* graph, LPCWSTR fileName);

}  // namespace platform_internal
