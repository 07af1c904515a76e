// Reference counting shared by every public object.
#ifndef SMARTCROP_SOURCE_REFCOUNT_H
#define SMARTCROP_SOURCE_REFCOUNT_H

#include <atomic>
#include <cstdint>

namespace smartCrop {

class CPolicyNoCopy {
public:
    CPolicyNoCopy() = default;
    CPolicyNoCopy(const CPolicyNoCopy&) = delete;
    CPolicyNoCopy& operator=(const CPolicyNoCopy&) = delete;
};

// Mixed into every concrete public class behind its interface. The virtual
// destructor lets the count delete the whole object from this sub-object.
class CRefCount : private CPolicyNoCopy {
public:
    virtual ~CRefCount() = default;

protected:
    // Count before the increment.
    uint32_t IncrementRef() { return refCount.fetch_add(1, std::memory_order_relaxed); }

    // Count before the decrement; deletes the object when that was 1.
    uint32_t DecrementRef() {
        const uint32_t before = refCount.fetch_sub(1, std::memory_order_acq_rel);
        if (before == 1) delete this;
        return before;
    }

private:
    std::atomic<uint32_t> refCount{1};
};

}  // namespace smartCrop

// Implements IBaseClass's counting slots in a class deriving from CRefCount.
#define SMARTCROP_IMPLEMENT_REFCOUNT \
    uint32_t Release() override {    \
        return DecrementRef();       \
    }                                \
    uint32_t AddRef() override {     \
        return IncrementRef();       \
    }

#endif  // SMARTCROP_SOURCE_REFCOUNT_H
