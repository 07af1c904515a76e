// The counted, read-only snapshots in which lists of records reach a host.
#ifndef SMARTCROP_SOURCE_RECTLISTS_H
#define SMARTCROP_SOURCE_RECTLISTS_H

#include <cstdint>
#include <vector>

#include "SmartCrop.h"
#include "source/RefCount.h"

namespace smartCrop {

// A deep snapshot: it owns its records and outlives the object that filled it.
template <class Interface, class Record>
class CRecordList : public Interface, private CRefCount {
public:
    SMARTCROP_IMPLEMENT_REFCOUNT

    uint64_t GetCount() const override { return records.size(); }
    const Record* GetRects() const override { return records.empty() ? nullptr : records.data(); }

    void Append(const Record& record) { records.push_back(record); }
    template <class Iterator>
    void Append(Iterator first, Iterator last) {
        records.insert(records.end(), first, last);
    }

protected:
    ~CRecordList() override = default;

private:
    std::vector<Record> records;
};

class CCropRects final : public CRecordList<ICropRects, CropRect> {};
class CRectsOfInterest final : public CRecordList<IRectsOfInterest, RectOfInterest> {};

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_RECTLISTS_H
