// A push source: the filter keeps an array of stream pins, and each stream
// pin runs a worker thread that fills samples and delivers them.
//
// Lock order: the state lock is taken by the host thread for state changes
// and connections; the worker never takes it, so Stop may hold it while it
// waits for the worker.
#pragma once

#include <vector>

#include "host/am_thread.h"
#include "host/base_filter.h"
#include "host/base_pin.h"

class CSourceStream;

class CSource : public CBaseFilter {
 public:
  CSource(const char* name, IUnknown* outer, REFCLSID clsid);
  ~CSource() override;

  int GetPinCount() override;
  CBasePin* GetPin(int index) override;

  // Called by a stream pin as it is made and deleted.
  HRESULT AddPin(CSourceStream* pin);
  HRESULT RemovePin(CSourceStream* pin);

  CCritSec* pStateLock() { return &m_StateLockStorage; }

 protected:
  CCritSec m_StateLockStorage;
  std::vector<CSourceStream*> m_Pins;  // state lock; not owned
};

class CSourceStream : public CAMThread, public CBaseOutputPin {
 public:
  enum Command : DWORD { CMD_INIT = 0, CMD_PAUSE = 1, CMD_RUN = 2, CMD_STOP = 3, CMD_EXIT = 4 };

  CSourceStream(const char* objectName, HRESULT* result, CSource* filter, LPCWSTR pinName);
  ~CSourceStream() override;

  HRESULT Active() override;
  HRESULT Inactive() override;

  // The media type by position: the pin offers the one GetMediaType(type).
  HRESULT GetMediaType(int position, CMediaType* type) override;
  HRESULT CheckMediaType(const CMediaType* type) override;
  virtual HRESULT GetMediaType(CMediaType* type) = 0;

  // Fills one sample: S_OK to deliver it, S_FALSE at the end of the stream,
  // a failure to stop with an error.
  virtual HRESULT FillBuffer(IMediaSample* sample) = 0;
  virtual HRESULT OnThreadCreate() { return S_OK; }
  virtual HRESULT OnThreadDestroy() { return S_OK; }
  virtual HRESULT OnThreadStartPlay() { return S_OK; }

  // Flush, stop, end flush, run: the worker goes on from a new position, as
  // a seek wants it. Runs with no lock of the caller held; nothing happens
  // without a worker. A Stop on another thread cannot split the sequence.
  void RestartWorker();

  HRESULT Init() { return static_cast<HRESULT>(CallWorker(CMD_INIT)); }
  HRESULT Exit() { return static_cast<HRESULT>(CallWorker(CMD_EXIT)); }
  HRESULT RunWorker() { return static_cast<HRESULT>(CallWorker(CMD_RUN)); }
  HRESULT PauseWorker() { return static_cast<HRESULT>(CallWorker(CMD_PAUSE)); }
  HRESULT StopWorker() { return static_cast<HRESULT>(CallWorker(CMD_STOP)); }

 protected:
  DWORD ThreadProc() override;
  virtual HRESULT DoBufferProcessingLoop();

  CSource* m_SourceFilter;

 private:
  // Held across each sequence of commands: the start of the worker (create,
  // init, pause), its end (stop, exit, join) and a restart. Without it a
  // seek's run could land between the host's stop and exit, and the worker,
  // delivering again, would refuse the exit and never end. Taken after the
  // state lock, and the worker never waits for it.
  CCritSec m_WorkerSequence;
};
