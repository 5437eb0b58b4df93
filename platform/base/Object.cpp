#include "n7utility/platform/base/Object.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/ThreadAnnotations.h"

namespace {

// Class records by name. Each name keeps its records in the order they were registered; the last
// one is the one found.
class ClassRegistry {
 public:
  void Add(CRuntimeClass* runtime_class) {
    n7platform::internal::ServiceGuard lock(section_);
    classes_[runtime_class->m_lpszClassName].push_back(runtime_class);
  }

  void Withdraw(const CRuntimeClass* runtime_class) {
    n7platform::internal::ServiceGuard lock(section_);
    auto found = classes_.find(runtime_class->m_lpszClassName);
    if (found == classes_.end()) return;
    std::vector<CRuntimeClass*>& records = found->second;
    auto last = std::find(records.rbegin(), records.rend(), runtime_class);
    if (last == records.rend()) return;
    records.erase(std::next(last).base());
    if (records.empty()) classes_.erase(found);
  }

  CRuntimeClass* Find(const std::string& name) {
    n7platform::internal::ServiceGuard lock(section_);
    auto found = classes_.find(name);
    return found == classes_.end() ? nullptr : found->second.back();
  }

 private:
  n7platform::internal::ServiceMutex section_;
  std::map<std::string, std::vector<CRuntimeClass*>, std::less<>> classes_ GUARDED_BY(section_);
};

ClassRegistry& Registry() {
  static n7platform::NoDestructor<ClassRegistry> registry;
  return *registry;
}

// Class names are ASCII identifiers; a wide name with anything else in it names no class.
bool NarrowClassName(LPCWSTR wide, std::string& narrow) {
  for (; *wide != L'\0'; ++wide) {
    if (*wide < 0 || *wide > 0x7F) return false;
    narrow.push_back(static_cast<char>(*wide));
  }
  return true;
}

}  // namespace

CObject* CRuntimeClass::CreateObject() const {
  return m_pfnCreateObject != nullptr ? m_pfnCreateObject() : nullptr;
}

BOOL CRuntimeClass::IsDerivedFrom(const CRuntimeClass* base) const {
  if (base == nullptr) return FALSE;
  for (const CRuntimeClass* current = this; current != nullptr; current = current->GetBaseClass()) {
    if (current == base) return TRUE;
  }
  return FALSE;
}

CRuntimeClass* CRuntimeClass::GetBaseClass() const {
  return m_pfnGetBaseClass != nullptr ? m_pfnGetBaseClass() : nullptr;
}

CRuntimeClass* CRuntimeClass::FromName(LPCSTR class_name) {
  if (class_name == nullptr) return nullptr;
  return Registry().Find(class_name);
}

CRuntimeClass* CRuntimeClass::FromName(LPCWSTR class_name) {
  std::string narrow;
  if (class_name == nullptr || !NarrowClassName(class_name, narrow)) return nullptr;
  return Registry().Find(narrow);
}

CObject* CRuntimeClass::CreateObject(LPCSTR class_name) {
  const CRuntimeClass* runtime_class = FromName(class_name);
  return runtime_class != nullptr ? runtime_class->CreateObject() : nullptr;
}

CObject* CRuntimeClass::CreateObject(LPCWSTR class_name) {
  const CRuntimeClass* runtime_class = FromName(class_name);
  return runtime_class != nullptr ? runtime_class->CreateObject() : nullptr;
}

void AfxClassInit(CRuntimeClass* new_class) { Registry().Add(new_class); }

void n7platform::WithdrawClass(const CRuntimeClass* runtime_class) {
  Registry().Withdraw(runtime_class);
}

CRuntimeClass CObject::classCObject = {"CObject", sizeof(CObject), kSchemaNotSerializable, nullptr,
                                       nullptr};
static const AFX_CLASSINIT n7_class_init_CObject(&CObject::classCObject);

CRuntimeClass* CObject::GetThisClass() { return &classCObject; }

CRuntimeClass* CObject::GetRuntimeClass() const { return &classCObject; }

CObject::~CObject() = default;

BOOL CObject::IsKindOf(const CRuntimeClass* runtime_class) const {
  return GetRuntimeClass()->IsDerivedFrom(runtime_class);
}

BOOL CObject::IsSerializable() const {
  return GetRuntimeClass()->m_wSchema != kSchemaNotSerializable ? TRUE : FALSE;
}

void CObject::Serialize(CArchive& /*ar*/) {}

CObject* AfxDynamicDownCast(CRuntimeClass* runtime_class, CObject* object) {
  return object != nullptr && object->IsKindOf(runtime_class) ? object : nullptr;
}

CObject* AfxStaticDownCast(CRuntimeClass* runtime_class, CObject* object) {
  return AfxDynamicDownCast(runtime_class, object);
}
