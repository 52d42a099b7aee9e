#include "ServiceProcess/MTReferencedTypeBase.h"

// All of these stand here, and not in the header, so that the executable exports them.
namespace MTObjects {

MTReferencedTypeBase::RefCounter::RefCounter() noexcept : count_(0) {}

MTReferencedTypeBase::MTReferencedTypeBase() noexcept = default;

MTReferencedTypeBase::MTReferencedTypeBase(const MTReferencedTypeBase&) noexcept {}

MTReferencedTypeBase& MTReferencedTypeBase::operator=(const MTReferencedTypeBase&) noexcept {
    return *this;
}

MTReferencedTypeBase::~MTReferencedTypeBase() = default;

void MTReferencedTypeBase::AddRef() {
    counter_.Increment();
}

void MTReferencedTypeBase::Release() {
    if (counter_.Decrement() == 1) delete this;
}

bool MTReferencedTypeBase::IsValid() {
    return TestValid();
}

bool MTReferencedTypeBase::IsValid() const {
    return TestValid();
}

}  // namespace MTObjects
