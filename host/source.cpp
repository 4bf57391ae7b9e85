#include "host/source.h"

#include <algorithm>
#include <chrono>
#include <thread>

// ---- CSource ------------------------------------------------------------

CSource::CSource(const char* name, IUnknown* outer, REFCLSID clsid)
    : CBaseFilter(name, outer, &m_StateLockStorage, clsid) {}

CSource::~CSource() = default;

int CSource::GetPinCount() {
  CAutoLock lock(&m_StateLockStorage);
  return static_cast<int>(m_Pins.size());
}

CBasePin* CSource::GetPin(int index) {
  CAutoLock lock(&m_StateLockStorage);
  if (index < 0 || index >= static_cast<int>(m_Pins.size())) return nullptr;
  return m_Pins[static_cast<std::size_t>(index)];
}

HRESULT CSource::AddPin(CSourceStream* pin) {
  CAutoLock lock(&m_StateLockStorage);
  try {
    m_Pins.push_back(pin);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT CSource::RemovePin(CSourceStream* pin) {
  CAutoLock lock(&m_StateLockStorage);
  const auto it = std::find(m_Pins.begin(), m_Pins.end(), pin);
  if (it == m_Pins.end()) return S_FALSE;
  m_Pins.erase(it);
  return S_OK;
}

// ---- CSourceStream ------------------------------------------------------

CSourceStream::CSourceStream(const char* objectName, HRESULT* result, CSource* filter, LPCWSTR pinName)
    : CBaseOutputPin(objectName, filter, filter->pStateLock(), result, pinName), m_SourceFilter(filter) {
  const HRESULT hr = filter->AddPin(this);
  if (result != nullptr) *result = hr;
}

CSourceStream::~CSourceStream() { m_SourceFilter->RemovePin(this); }

HRESULT CSourceStream::GetMediaType(int position, CMediaType* type) {
  if (position < 0) return E_INVALIDARG;
  if (position > 0) return VFW_S_NO_MORE_ITEMS;
  return GetMediaType(type);
}

HRESULT CSourceStream::CheckMediaType(const CMediaType* type) {
  CMediaType own;
  if (FAILED(GetMediaType(&own))) return E_FAIL;
  const AM_MEDIA_TYPE& a = own.Type();
  const AM_MEDIA_TYPE& b = type->Type();
  return a.majortype == b.majortype && a.subtype == b.subtype && a.formattype == b.formattype ? S_OK : E_FAIL;
}

HRESULT CSourceStream::Active() {
  CAutoLock lock(m_StateLock);
  if (m_Filter->IsActive()) return S_FALSE;  // the filter activates a pin once
  if (!IsConnected()) return S_OK;
  HRESULT hr = CBaseOutputPin::Active();
  if (FAILED(hr)) return hr;
  CAutoLock sequence(&m_WorkerSequence);
  if (ThreadExists()) return S_OK;
  if (!Create()) return E_FAIL;
  hr = Init();
  if (FAILED(hr)) return hr;
  return PauseWorker();
}

HRESULT CSourceStream::Inactive() {
  CAutoLock lock(m_StateLock);
  if (!IsConnected()) return S_OK;
  // Decommit first, so that a worker waiting for a buffer wakes with a
  // failure and sees the stop command.
  HRESULT hr = CBaseOutputPin::Inactive();
  if (FAILED(hr)) return hr;
  CAutoLock sequence(&m_WorkerSequence);
  if (ThreadExists()) {
    // A worker that has ended fails both commands; it is joined all the same.
    StopWorker();
    Exit();
    Close();
  }
  return S_OK;
}

void CSourceStream::RestartWorker() {
  CAutoLock sequence(&m_WorkerSequence);
  if (!ThreadExists()) return;
  // Each result is left alone: a worker that has already gone fails the
  // commands, and the new position waits for the next Pause.
  DeliverBeginFlush();
  StopWorker();
  DeliverEndFlush();
  RunWorker();
}

DWORD CSourceStream::ThreadProc() {
  DWORD command = 0;
  do {
    command = GetRequest();
    if (command != CMD_INIT) Reply(static_cast<DWORD>(E_UNEXPECTED));
  } while (command != CMD_INIT);

  HRESULT hr = OnThreadCreate();
  if (FAILED(hr)) {
    OnThreadDestroy();
    Reply(static_cast<DWORD>(hr));
    return 1;
  }
  Reply(S_OK);

  for (;;) {
    command = GetRequest();
    switch (command) {
      case CMD_EXIT:
        Reply(S_OK);
        OnThreadDestroy();
        return 0;
      case CMD_RUN:
      case CMD_PAUSE:
        Reply(S_OK);
        DoBufferProcessingLoop();
        break;
      case CMD_STOP:
        Reply(S_OK);
        break;
      default:
        Reply(static_cast<DWORD>(E_NOTIMPL));
        break;
    }
  }
}

HRESULT CSourceStream::DoBufferProcessingLoop() {
  OnThreadStartPlay();
  DWORD command = 0;
  do {
    while (!CheckRequest(&command)) {
      IMediaSample* sample = nullptr;
      HRESULT hr = GetDeliveryBuffer(&sample, nullptr, nullptr, 0);
      if (FAILED(hr)) {
        // No buffer: decommitted, or the peer holds them all. A command
        // will come; look again in a moment.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        continue;
      }
      hr = FillBuffer(sample);
      if (hr == S_OK) {
        hr = Deliver(sample);
        sample->Release();
        // A refused sample or a flushing peer: idle, no end of stream; the
        // next command decides.
        if (hr != S_OK) return S_OK;
      } else if (hr == S_FALSE) {
        sample->Release();
        DeliverEndOfStream();
        return S_OK;
      } else {
        sample->Release();
        DeliverEndOfStream();
        m_Filter->NotifyEvent(EC_ERRORABORT, hr, 0);
        return hr;
      }
    }
    // Run and pause change nothing here; stop stays pending for the idle
    // loop, which replies to it.
    if (command == CMD_RUN || command == CMD_PAUSE) {
      Reply(S_OK);
    } else if (command != CMD_STOP) {
      Reply(static_cast<DWORD>(E_UNEXPECTED));
    }
  } while (command != CMD_STOP);
  return S_FALSE;
}
