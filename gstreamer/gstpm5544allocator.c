#include "gstpm5544allocator.h"

#include <string.h>

#define ALLOCATOR_NAME "pm5544-memory"

struct _GstPm5544Allocator {
    GstAllocator parent;
};

typedef struct {
    GstMemory memory;
    guint8* data; /* of the root memory; shares point into it */
    guint64 generation;
    gint64 held_frame; /* -1: unknown */
} Pm5544Memory;

G_DEFINE_TYPE(GstPm5544Allocator, gst_pm5544_allocator, GST_TYPE_ALLOCATOR)

static Pm5544Memory* root_of(GstMemory* memory) {
    while (memory->parent != NULL) memory = memory->parent;
    return (Pm5544Memory*)memory;
}

static GstMemory* allocator_alloc(GstAllocator* allocator, gsize size, GstAllocationParams* params) {
    const gsize align = params->align | gst_memory_alignment;
    const gsize maxsize = size + params->prefix + params->padding;
    Pm5544Memory* memory = g_new0(Pm5544Memory, 1);
    /* Room to align the start; the memory's offset then skips to the aligned address. */
    memory->data = g_malloc(maxsize + align);
    const gsize shift = (align + 1 - ((guintptr)memory->data & align)) & align;
    gst_memory_init(&memory->memory, params->flags, allocator, NULL, maxsize + align, align, shift + params->prefix,
                    size);
    memory->held_frame = -1;
    if (params->flags & GST_MEMORY_FLAG_ZERO_PREFIXED) memset(memory->data + shift, 0, params->prefix);
    if (params->flags & GST_MEMORY_FLAG_ZERO_PADDED)
        memset(memory->data + shift + params->prefix + size, 0, params->padding);
    return &memory->memory;
}

static void allocator_free(GstAllocator* allocator, GstMemory* memory) {
    (void)allocator;
    Pm5544Memory* own = (Pm5544Memory*)memory;
    if (memory->parent == NULL) g_free(own->data);
    g_free(own);
}

static gpointer memory_map(GstMemory* memory, gsize maxsize, GstMapFlags flags) {
    (void)maxsize;
    Pm5544Memory* root = root_of(memory);
    if (flags & GST_MAP_WRITE) root->held_frame = -1;
    return root->data;
}

static void memory_unmap(GstMemory* memory) { (void)memory; }

static GstMemory* memory_share(GstMemory* memory, gssize offset, gssize size) {
    Pm5544Memory* root = root_of(memory);
    Pm5544Memory* share = g_new0(Pm5544Memory, 1);
    if (size == -1) size = (gssize)memory->size - offset;
    gst_memory_init(&share->memory, GST_MINI_OBJECT_FLAGS(memory) | GST_MINI_OBJECT_FLAG_LOCK_READONLY,
                    memory->allocator, memory, memory->maxsize, memory->align, memory->offset + (gsize)offset,
                    (gsize)size);
    share->data = root->data;
    share->held_frame = -1;
    return &share->memory;
}

static void gst_pm5544_allocator_class_init(GstPm5544AllocatorClass* klass) {
    GstAllocatorClass* allocator_class = GST_ALLOCATOR_CLASS(klass);
    allocator_class->alloc = allocator_alloc;
    allocator_class->free = allocator_free;
}

static void gst_pm5544_allocator_init(GstPm5544Allocator* self) {
    GstAllocator* allocator = GST_ALLOCATOR(self);
    allocator->mem_type = ALLOCATOR_NAME;
    allocator->mem_map = memory_map;
    allocator->mem_unmap = memory_unmap;
    allocator->mem_share = memory_share;
    GST_OBJECT_FLAG_SET(self, GST_ALLOCATOR_FLAG_CUSTOM_ALLOC);
}

/* Lives as long as the process, as GStreamer's system memory allocator does. */
static GstAllocator* process_allocator;

void gst_pm5544_allocator_register(void) {
    if (process_allocator != NULL) return;
    process_allocator = GST_ALLOCATOR(gst_object_ref_sink(g_object_new(GST_TYPE_PM5544_ALLOCATOR, NULL)));
    gst_allocator_register(ALLOCATOR_NAME, gst_object_ref(process_allocator));
}

GstAllocator* gst_pm5544_allocator_get(void) { return gst_object_ref(process_allocator); }

guint64 gst_pm5544_new_generation(void) {
    static GMutex lock; /* 64-bit atomics are not everywhere */
    static guint64 last = 0;
    g_mutex_lock(&lock);
    const guint64 generation = ++last;
    g_mutex_unlock(&lock);
    return generation;
}

static gboolean is_ours(GstMemory* memory) {
    return memory->allocator != NULL && GST_IS_PM5544_ALLOCATOR(memory->allocator);
}

gint64 gst_pm5544_memory_held_frame(GstMemory* memory, guint64 generation) {
    if (!is_ours(memory) || memory->parent != NULL) return -1;
    const Pm5544Memory* own = (const Pm5544Memory*)memory;
    return own->generation == generation ? own->held_frame : -1;
}

void gst_pm5544_memory_set_held_frame(GstMemory* memory, guint64 generation, gint64 frame) {
    if (!is_ours(memory) || memory->parent != NULL) return;
    Pm5544Memory* own = (Pm5544Memory*)memory;
    own->generation = generation;
    own->held_frame = frame;
}
