#ifndef PLATFORM_GLIBPOINTERS_H
#define PLATFORM_GLIBPOINTERS_H

#include <glib.h>

#include <memory>

namespace cf {

struct UnrefContext {
    void operator()(GMainContext* context) const noexcept {
        g_main_context_unref(context);
    }
};
using ContextPointer = std::unique_ptr<GMainContext, UnrefContext>;

/* Also removes the source from its context. */
struct DestroySource {
    void operator()(GSource* source) const noexcept {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
using SourcePointer = std::unique_ptr<GSource, DestroySource>;

} // namespace cf

#endif
