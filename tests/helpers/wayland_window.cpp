// wayland_window APP_ID TITLE: one plain xdg-shell window with that app_id and title, shown
// until the process is killed or the compositor closes it. The smallest client that a
// compositor lists as a window; it draws a grey square from shared memory.

#include <cstdio>
#include <cstring>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include "xdg-shell-client-protocol.h"

namespace {

struct Window {
    wl_compositor *compositor = nullptr;
    wl_shm *shm = nullptr;
    xdg_wm_base *wmBase = nullptr;
    bool configured = false;
    bool closed = false;
};

void onGlobal(void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t) {
    auto *w = static_cast<Window *>(data);
    const std::string_view which(interface);
    if (which == wl_compositor_interface.name)
        w->compositor = static_cast<wl_compositor *>(
            wl_registry_bind(registry, name, &wl_compositor_interface, 1));
    else if (which == wl_shm_interface.name)
        w->shm = static_cast<wl_shm *>(wl_registry_bind(registry, name, &wl_shm_interface, 1));
    else if (which == xdg_wm_base_interface.name)
        w->wmBase =
            static_cast<xdg_wm_base *>(wl_registry_bind(registry, name, &xdg_wm_base_interface, 1));
}

void onGlobalRemove(void *, wl_registry *, uint32_t) {}

const wl_registry_listener registryListener = {onGlobal, onGlobalRemove};

const xdg_wm_base_listener wmBaseListener = {
    [](void *, xdg_wm_base *base, uint32_t serial) { xdg_wm_base_pong(base, serial); }};

const xdg_surface_listener surfaceListener = {
    [](void *data, xdg_surface *surface, uint32_t serial) {
        xdg_surface_ack_configure(surface, serial);
        static_cast<Window *>(data)->configured = true;
    }};

const xdg_toplevel_listener toplevelListener = {
    [](void *, xdg_toplevel *, int32_t, int32_t, wl_array *) {},
    [](void *data, xdg_toplevel *) { static_cast<Window *>(data)->closed = true; },
    [](void *, xdg_toplevel *, int32_t, int32_t) {}, [](void *, xdg_toplevel *, wl_array *) {}};

wl_buffer *greySquare(wl_shm *shm, int side) {
    const int stride = side * 4, size = stride * side;
    const int fd = memfd_create("wayland_window", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, size) != 0)
        return nullptr;
    void *pixels = mmap(nullptr, size_t(size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED)
        return nullptr;
    std::memset(pixels, 0x80, size_t(size));
    munmap(pixels, size_t(size));
    wl_shm_pool *pool = wl_shm_create_pool(shm, fd, size);
    wl_buffer *buffer =
        wl_shm_pool_create_buffer(pool, 0, side, side, stride, WL_SHM_FORMAT_XRGB8888);
    wl_shm_pool_destroy(pool);
    close(fd);
    return buffer;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s APP_ID TITLE\n", argv[0]);
        return 2;
    }
    wl_display *display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "wayland_window: no compositor\n");
        return 1;
    }
    Window w;
    wl_registry *registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, &w);
    wl_display_roundtrip(display);
    if (!w.compositor || !w.shm || !w.wmBase) {
        std::fprintf(stderr, "wayland_window: the compositor lacks xdg-shell or shm\n");
        return 1;
    }
    xdg_wm_base_add_listener(w.wmBase, &wmBaseListener, &w);
    wl_surface *surface = wl_compositor_create_surface(w.compositor);
    xdg_surface *shellSurface = xdg_wm_base_get_xdg_surface(w.wmBase, surface);
    xdg_surface_add_listener(shellSurface, &surfaceListener, &w);
    xdg_toplevel *toplevel = xdg_surface_get_toplevel(shellSurface);
    xdg_toplevel_add_listener(toplevel, &toplevelListener, &w);
    xdg_toplevel_set_app_id(toplevel, argv[1]);
    xdg_toplevel_set_title(toplevel, argv[2]);
    wl_surface_commit(surface);
    while (!w.configured && wl_display_dispatch(display) >= 0) {
    }
    // A window is mapped, and so listed and focused, once it has content.
    wl_surface_attach(surface, greySquare(w.shm, 64), 0, 0);
    wl_surface_commit(surface);
    while (!w.closed && wl_display_dispatch(display) >= 0) {
    }
    wl_display_disconnect(display);
    return 0;
}
