// The pin's seeking object: times become packet indexes by plain proportion
// of the file, a stop position becomes an end-of-stream limit in bytes, and a
// move restarts the worker behind a flush.
#pragma once

#include "host/source_seeking.h"

class CTsOutputPin;

class CTsSeeking final : public CSourceSeeking {
 public:
  CTsSeeking(CTsOutputPin* pin, IUnknown* owner, CCritSec* pinLock, REFERENCE_TIME duration);

  // The packet that stands at the same fraction of the file as `time` of
  // the duration. Called with the pin lock held.
  std::uint32_t PacketForTime(REFERENCE_TIME time);

 protected:
  HRESULT ChangeStart() override;
  HRESULT ChangeStop() override;
  HRESULT ChangeRate() override;
  HRESULT DurationInBytes(LONGLONG* bytes) override;
  HRESULT CurrentPosition(LONGLONG* position) override;

 private:
  CTsOutputPin* m_Pin;
};
