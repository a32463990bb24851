// Identity, reference counts, aggregation and the class objects, by COM's rules.
#include "tests/apo/ApoWorld.h"

namespace vellumic::test {
namespace {

constexpr IID unknownInterface{0x12345678, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};

std::vector<IID> interfacesOf(const ClassCase& which) {
  return {IID_IUnknown,
          __uuidof(IAudioProcessingObject),
          __uuidof(IAudioProcessingObjectRT),
          __uuidof(IAudioProcessingObjectConfiguration),
          __uuidof(IMMNotificationClient),
          __uuidof(IAudioSystemEffects),
          __uuidof(IAudioSystemEffects2),
          __uuidof(IAudioSystemEffectsCustomFormats),
          which.own};
}

ComPtr<IUnknown> created(const ClassCase& which, IUnknown* outer = nullptr) {
  ComPtr<IClassFactory> factory;
  EXPECT_EQ(getClass(which.id, IID_IClassFactory, factory.putVoid()), S_OK);
  ComPtr<IUnknown> object;
  EXPECT_EQ(factory->CreateInstance(outer, IID_IUnknown, object.putVoid()), S_OK);
  return object;
}

ULONG countOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

class Identity : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(canUnload(), S_OK); }
};

TEST_F(Identity, EveryInterfaceLeadsToEveryOther) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    const auto object = created(which);
    EXPECT_EQ(canUnload(), S_FALSE);
    EXPECT_EQ(countOf(object.get()), 1U);
    for (const IID& from : interfacesOf(which)) {
      const auto start = as<IUnknown>(object.get(), from);
      ASSERT_TRUE(start);
      for (const IID& to : interfacesOf(which))
        EXPECT_EQ(as<IUnknown>(start.get(), to).get(), as<IUnknown>(object.get(), to).get());
      void* nothing = object.get();
      EXPECT_EQ(start->QueryInterface(unknownInterface, &nothing), E_NOINTERFACE);
      EXPECT_EQ(nothing, nullptr);
      EXPECT_EQ(start->QueryInterface(from, nullptr), E_POINTER);
    }
    for (const ClassCase& another : classCases)
      EXPECT_EQ(static_cast<bool>(as<IUnknown>(object.get(), another.own)), &another == &which);
    EXPECT_EQ(countOf(object.get()), 1U);
  }
}

// An outer object that counts and forwards what it does not know itself.
class Outer : public Double<IUnknown> {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    return IsEqualIID(id, IID_IUnknown) ? Double::QueryInterface(id, object)
                                        : inner->QueryInterface(id, object);
  }
  ComPtr<IUnknown> inner;
};

TEST_F(Identity, AggregatesIntoAnOuterObject) {
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    Outer outer;
    outer.inner = created(which, &outer);
    EXPECT_EQ(outer.references, 0U);
    {
      const auto object = as<IAudioProcessingObject>(outer.inner.get());
      EXPECT_EQ(outer.references, 1U);  // the inner interface counts on the outer object
      EXPECT_EQ(as<IUnknown>(object.get(), IID_IUnknown).get(), &outer);
      const auto own = as<IUnknown>(object.get(), which.own);
      EXPECT_EQ(as<IUnknown>(own.get(), __uuidof(IAudioProcessingObject)).get(), object.get());
      EXPECT_EQ(outer.references, 2U);
    }
    EXPECT_EQ(outer.references, 0U);
    EXPECT_EQ(countOf(outer.inner.get()), 1U);
    EXPECT_NE(outer.inner.get(), &outer);
  }
}

TEST_F(Identity, ClassObjects) {
  void* object = this;
  Outer outer;
  ComPtr<IClassFactory> factory;
  EXPECT_EQ(getClass(efx.id, IID_IClassFactory, nullptr), E_POINTER);
  EXPECT_EQ(getClass(unknownInterface, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(getClass(efx.id, unknownInterface, &object), E_NOINTERFACE);
  ASSERT_EQ(getClass(efx.id, IID_IUnknown, factory.putVoid()), S_OK);
  EXPECT_EQ(canUnload(), S_FALSE);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(factory->CreateInstance(nullptr, unknownInterface, &object), E_NOINTERFACE);
  EXPECT_EQ(factory->CreateInstance(&outer, __uuidof(IAudioProcessingObject), &object),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(factory->LockServer(TRUE), S_OK);
  EXPECT_EQ(canUnload(), S_FALSE);
  factory.reset();
  EXPECT_EQ(canUnload(), S_FALSE);
  ASSERT_EQ(getClass(efx.id, IID_IClassFactory, factory.putVoid()), S_OK);
  EXPECT_EQ(factory->LockServer(FALSE), S_OK);
}

}  // namespace
}  // namespace vellumic::test
