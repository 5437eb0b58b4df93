// A program outside the project with a string table of its own and a German language module,
// both compiled by the installed n7rc: named as a Linux program (no extension), it finds the
// module as res/resource_hostRes.de.so beside itself, wherever it was copied. Prints OK when its
// own string and the German one load.
#include <n7utility.h>

#include <cstdio>

int main() {
  HINSTANCE self = nullptr;  // the program itself
  CResourceMgr resources(self);
  const CString own = resources.LoadStringW(1);
  const CString german = resources.LoadStringW(1, 0, MAKELANGID(LANG_GERMAN, SUBLANG_DEFAULT));
  if (own != CString(L"host's own string") || german != CString(L"Zeichenkette des Wirts")) {
    std::fprintf(stderr, "resource_host: loaded '%ls' and '%ls'\n", own.GetString(),
                 german.GetString());
    return 1;
  }
  std::puts("OK");
  return 0;
}
