// ComPtr: a small RAII holder for COM interface pointers.
#pragma once

#include <cstddef>
#include <utility>

// Holds one reference: AddRef on copy, Release on destruction. Works with any
// type that has AddRef and Release, so it needs no interface definitions.
template <class T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(std::nullptr_t) noexcept {}
  // Takes a new reference; use Attach to adopt one the caller already owns.
  ComPtr(T* p) noexcept : p_(p) { AddRefIfAny(); }
  ComPtr(const ComPtr& other) noexcept : p_(other.p_) { AddRefIfAny(); }
  ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  // From a holder of a derived interface, as a raw pointer would convert.
  template <class U>
  ComPtr(const ComPtr<U>& other) noexcept : p_(other.Get()) {
    AddRefIfAny();
  }
  ~ComPtr() { Reset(); }

  ComPtr& operator=(const ComPtr& other) noexcept {
    ComPtr(other).Swap(*this);
    return *this;
  }
  ComPtr& operator=(ComPtr&& other) noexcept {
    ComPtr(std::move(other)).Swap(*this);
    return *this;
  }
  ComPtr& operator=(T* p) noexcept {
    ComPtr(p).Swap(*this);
    return *this;
  }
  ComPtr& operator=(std::nullptr_t) noexcept {
    Reset();
    return *this;
  }

  // Adopts a reference the caller owns (one returned through an out-parameter).
  static ComPtr Attach(T* p) noexcept {
    ComPtr result;
    result.p_ = p;
    return result;
  }

  T* Get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // For an out-parameter of type T**: drops what is held first, so the
  // previous reference is not leaked when the callee overwrites it.
  T** PutAddress() noexcept {
    Reset();
    return &p_;
  }

  // For QueryInterface-style void** out-parameters. Writing a T* through a
  // void** would alias two pointer types, so the callee writes into a void*
  // that is converted back when the full expression ends. The holder is
  // therefore still empty inside that expression: test it in the next
  // statement, not in `FAILED(QueryInterface(..., p.PutVoid())) || !p`.
  class VoidOut {
   public:
    explicit VoidOut(ComPtr& owner) noexcept : owner_(owner) {}
    VoidOut(const VoidOut&) = delete;
    VoidOut& operator=(const VoidOut&) = delete;
    ~VoidOut() { owner_.p_ = static_cast<T*>(raw_); }
    operator void**() noexcept { return &raw_; }

   private:
    ComPtr& owner_;
    void* raw_ = nullptr;
  };
  VoidOut PutVoid() noexcept {
    Reset();
    return VoidOut(*this);
  }

  void Reset() noexcept {
    if (T* p = std::exchange(p_, nullptr)) p->Release();
  }

  // Hands the reference to the caller, who then owns one Release.
  [[nodiscard]] T* Detach() noexcept { return std::exchange(p_, nullptr); }

  void Swap(ComPtr& other) noexcept { std::swap(p_, other.p_); }

 private:
  void AddRefIfAny() noexcept {
    if (p_) p_->AddRef();
  }

  T* p_ = nullptr;
};
