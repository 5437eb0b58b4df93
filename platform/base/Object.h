// The framework's root class and its run-time class information.
//
// Every class that derives from CObject and names itself with the DECLARE_/IMPLEMENT_ macros gets
// a class record (CRuntimeClass): its name, size, schema (the version of its stored layout), the
// function that creates an object of it (for classes that can be created by name) and a link to
// its base class's record. The records let code ask what an object is (IsKindOf, the checked
// downcasts), create an object from a class name (CRuntimeClass::FromName, CreateObject), and let
// an archive store an object with its class name and read it back as an object of that class.
//
//   class CShape : public CObject {
//     DECLARE_SERIAL(CShape)
//    public:
//     void Serialize(CArchive& ar) override;
//   };
//   IMPLEMENT_SERIAL(CShape, CObject, VERSIONABLE_SCHEMA | 2)   // in one source file
//
// DECLARE_DYNAMIC gives the class record only; DECLARE_DYNCREATE adds creation by name (the class
// needs a default constructor); DECLARE_SERIAL adds the schema and the archive's operator>>.
//
// Every class record named by an IMPLEMENT_ macro is entered in a process-wide registry when its
// module loads, under its class name. When two records carry the same name, the one registered
// last is found until it is withdrawn (n7platform::WithdrawClass); the registry is thread-safe.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

class CArchive;
class CObject;

// The schema of a class that cannot be stored in an archive.
inline constexpr UINT kSchemaNotSerializable = 0xFFFF;
// Or'ed into a class's schema: the class reads the layouts of older schemas itself (asking the
// archive with GetObjectSchema), so an archive with another schema number is not refused.
inline constexpr UINT VERSIONABLE_SCHEMA = 0x80000000u;

struct N7_EXPORT CRuntimeClass {
  LPCSTR m_lpszClassName;
  int m_nObjectSize;
  UINT m_wSchema;                   // kSchemaNotSerializable for classes that are not serialisable
  CObject* (*m_pfnCreateObject)();  // null: not creatable by name
  CRuntimeClass* (*m_pfnGetBaseClass)();  // null for CObject

  // A new object of this class, or null when the class cannot be created by name.
  CObject* CreateObject() const;
  // True when this class is `base` or derives from it.
  BOOL IsDerivedFrom(const CRuntimeClass* base) const;
  CRuntimeClass* GetBaseClass() const;

  // The registered class of that name, or null.
  static CRuntimeClass* FromName(LPCSTR class_name);
  static CRuntimeClass* FromName(LPCWSTR class_name);
  // A new object of the class of that name, or null when there is none or it is not creatable.
  static CObject* CreateObject(LPCSTR class_name);
  static CObject* CreateObject(LPCWSTR class_name);

  // Writes the class's schema and name, as an archive records a class it meets first.
  void Store(CArchive& ar) const;
  // Reads what Store wrote: the registered class of that name (null when there is none) and, in
  // `schema`, the schema the archive was written with.
  static CRuntimeClass* Load(CArchive& ar, UINT* schema);
};

// Enters a class record in the registry; the IMPLEMENT_ macros do it when the module loads.
N7_EXPORT void AfxClassInit(CRuntimeClass* new_class);

// Registers a class when its module loads. Running out of memory that early ends the process.
struct N7_EXPORT AFX_CLASSINIT {
  explicit AFX_CLASSINIT(CRuntimeClass* new_class) noexcept { AfxClassInit(new_class); }
};

namespace n7platform {
// Removes the most recent registration of `runtime_class`, so that an earlier record of the same
// name is found again. For modules that bring their own classes and go away before the process.
N7_EXPORT void WithdrawClass(const CRuntimeClass* runtime_class);
}  // namespace n7platform

#define RUNTIME_CLASS(class_name) (class_name::GetThisClass())

// The root class. It cannot be copied: an object's identity matters to archives, which store an
// object met twice as a reference to the first.
class N7_EXPORT CObject {
 public:
  static CRuntimeClass classCObject;
  static CRuntimeClass* GetThisClass();

  virtual CRuntimeClass* GetRuntimeClass() const;
  virtual ~CObject() = 0;
  CObject(const CObject&) = delete;
  CObject& operator=(const CObject&) = delete;

  BOOL IsKindOf(const CRuntimeClass* runtime_class) const;
  BOOL IsSerializable() const;
  // Stores the object's data into, or loads it from, `ar`; the default has no data.
  virtual void Serialize(CArchive& ar);

 protected:
  CObject() = default;
};

// `object` when it is of `runtime_class` (or derived from it), otherwise null. Null stays null.
N7_EXPORT CObject* AfxDynamicDownCast(CRuntimeClass* runtime_class, CObject* object);
// The same check: a downcast that would give a pointer of the wrong type gives null instead.
N7_EXPORT CObject* AfxStaticDownCast(CRuntimeClass* runtime_class, CObject* object);

#define DYNAMIC_DOWNCAST(class_name, object) \
  (static_cast<class_name*>(AfxDynamicDownCast(RUNTIME_CLASS(class_name), object)))
#define STATIC_DOWNCAST(class_name, object) \
  (static_cast<class_name*>(AfxStaticDownCast(RUNTIME_CLASS(class_name), object)))

// NOLINTBEGIN(bugprone-reserved-identifier): the framework's names for the class plumbing.
#define DECLARE_DYNAMIC(class_name)                \
 protected:                                        \
  static CRuntimeClass* _GetBaseClass();           \
                                                   \
 public:                                           \
  static CRuntimeClass class##class_name;          \
  static CRuntimeClass* GetThisClass();            \
  CRuntimeClass* GetRuntimeClass() const override; \
                                                   \
 private:

#define DECLARE_DYNCREATE(class_name) \
  DECLARE_DYNAMIC(class_name)         \
 public:                              \
  static CObject* CreateObject();     \
                                      \
 private:

#define DECLARE_SERIAL(class_name)                                \
  DECLARE_DYNCREATE(class_name)                                   \
 public:                                                          \
  friend CArchive& operator>>(CArchive& ar, class_name*& object); \
                                                                  \
 private:

#define IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, schema, create)                     \
  CRuntimeClass* class_name::_GetBaseClass() { return RUNTIME_CLASS(base_class_name); }         \
  CRuntimeClass class_name::class##class_name = {#class_name, sizeof(class_name), (schema),     \
                                                 (create), &class_name::_GetBaseClass};         \
  CRuntimeClass* class_name::GetThisClass() { return &class_name::class##class_name; }          \
  CRuntimeClass* class_name::GetRuntimeClass() const { return &class_name::class##class_name; } \
  static const AFX_CLASSINIT n7_class_init_##class_name(&class_name::class##class_name);

#define IMPLEMENT_DYNAMIC(class_name, base_class_name) \
  IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, kSchemaNotSerializable, nullptr)

#define IMPLEMENT_DYNCREATE(class_name, base_class_name)                      \
  CObject* class_name::CreateObject() { return new class_name; }              \
  IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, kSchemaNotSerializable, \
                         &class_name::CreateObject)

#define IMPLEMENT_SERIAL(class_name, base_class_name, schema)                            \
  CObject* class_name::CreateObject() { return new class_name; }                         \
  IMPLEMENT_RUNTIMECLASS(class_name, base_class_name, schema, &class_name::CreateObject) \
  CArchive& operator>>(CArchive& ar, class_name*& object) {                              \
    object = static_cast<class_name*>(ar.ReadObject(RUNTIME_CLASS(class_name)));         \
    return ar;                                                                           \
  }
// NOLINTEND(bugprone-reserved-identifier)
