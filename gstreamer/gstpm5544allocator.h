/* Memory that remembers which frame of which card it holds until anyone maps it for writing, so that
 * a buffer of pm5544src's own pool that comes back untouched needs only the rows that changed since. */
#ifndef GST_PM5544_ALLOCATOR_H
#define GST_PM5544_ALLOCATOR_H

#include <gst/gst.h>

G_BEGIN_DECLS

#define GST_TYPE_PM5544_ALLOCATOR (gst_pm5544_allocator_get_type())
G_DECLARE_FINAL_TYPE(GstPm5544Allocator, gst_pm5544_allocator, GST, PM5544_ALLOCATOR, GstAllocator)

/* One allocator serves every pm5544src of the process, registered with GStreamer when the plugin loads,
 * as GStreamer's own allocators are; _get returns a reference to it. */
void gst_pm5544_allocator_register(void);
GstAllocator* gst_pm5544_allocator_get(void);

/* A number no card of the process has had: which card rendered a memory's frame. */
guint64 gst_pm5544_new_generation(void);

/* The frame the memory holds as rendered by the card of `generation`, or -1 (another allocator's
 * memory, another card, or mapped for writing since). */
gint64 gst_pm5544_memory_held_frame(GstMemory* memory, guint64 generation);
void gst_pm5544_memory_set_held_frame(GstMemory* memory, guint64 generation, gint64 frame);

G_END_DECLS

#endif
