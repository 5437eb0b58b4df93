#include "platform/Exceptions.h"

CException::CException() : CException(TRUE) {}

CException::CException(BOOL auto_delete) : m_bAutoDelete(auto_delete) {}

CException::~CException() = default;

CResourceException::CResourceException() = default;

CResourceException::~CResourceException() = default;

void AfxThrowResourceException() { throw new CResourceException; }
