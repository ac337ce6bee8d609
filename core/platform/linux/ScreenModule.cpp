#include "platform/linux/ScreenModuleEntry.h"
#include "platform/linux/XcbScreen.h"

extern "C" {

const char lenslarkModuleStamp[] = LENSLARK_MODULE_STAMP;

lenslark::Screen* lenslarkScreenModule() { return new lenslark::XcbScreen; }
}
