// A libwdi.dll that installs nothing: it writes down each call and answers what a script tells it.
// It is written from libwdi's public interface and shares no line with the program, so that the two
// can disagree about a record's layout.
//
// Both files lie beside the DLL and have its name: libwdi.dll.script is read, to libwdi.dll.calls
// lines are added.
//
// - list RESULT: the answer to the next listing, with the devices of the lines that follow
// - device VID PID MI NAME|ID|HW: hexadecimal ids, interface; name, device id and hardware id are
//   texts without "|"
// - prepare RESULT: the answer to the preparation
// - install RESULT: the answer to the next installation; 0 after the last
//
// A build with -Dwdi_strerror=other has no wdi_strerror, and so on.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <windows.h>

struct wdi_device_info
{
    struct wdi_device_info *next;
    unsigned short vid;
    unsigned short pid;
    BOOL is_composite;
    unsigned char mi;
    char *desc;
    char *driver;
    char *device_id;
    char *hardware_id;
    char *compatible_id;
    char *upper_filter;
    UINT64 driver_version;
};

struct wdi_options_create_list
{
    BOOL list_all;
    BOOL list_hubs;
    BOOL trim_whitespaces;
};

struct wdi_options_prepare_driver
{
    int driver_type;
    char *vendor_name;
    char *device_guid;
    BOOL disable_cat;
    BOOL disable_signing;
    char *cert_subject;
    BOOL use_wcid_driver;
    BOOL external_inf;
};

struct wdi_options_install_driver
{
    HWND hWnd;
    BOOL install_filter_driver;
    UINT32 pending_install_timeout;
};

#define WDI_API __declspec(dllexport)
#define LINE 1024

static char s_folder[LINE];
static char s_script[16384];
static int s_listings;
static int s_installations;

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID reserved)
{
    (void)reserved;
    if (reason != DLL_PROCESS_ATTACH) {
        return TRUE;
    }
    GetModuleFileNameA(library, s_folder, LINE);
    char path[LINE + 8];
    snprintf(path, sizeof(path), "%s.script", s_folder);
    FILE *file = fopen(path, "rb");
    if (file != NULL) {
        s_script[fread(s_script, 1, sizeof(s_script) - 1, file)] = '\0';
        fclose(file);
    }
    return TRUE;
}

static void note(const char *line)
{
    char path[LINE + 8];
    snprintf(path, sizeof(path), "%s.calls", s_folder);
    FILE *file = fopen(path, "ab");
    if (file != NULL) {
        fprintf(file, "%s\n", line);
        fclose(file);
    }
}

static const char *line_after(const char *line)
{
    const char *end = strchr(line, '\n');
    return end == NULL ? line + strlen(line) : end + 1;
}

// The n-th line (from 0) that begins with this word, or null.
static const char *script_line(const char *word, int n)
{
    for (const char *line = s_script; *line != '\0'; line = line_after(line)) {
        if (strncmp(line, word, strlen(word)) == 0 && n-- == 0) {
            return line + strlen(word);
        }
    }
    return NULL;
}

static int scripted_result(const char *word, int n)
{
    const char *line = script_line(word, n);
    return line == NULL ? 0 : atoi(line);
}

static char *copied_text(const char **text, const char *ends)
{
    const size_t length = strcspn(*text, ends);
    char *copy = calloc(length + 1, 1);
    memcpy(copy, *text, length);
    *text += length + ((*text)[length] == '|' ? 1 : 0);
    return copy;
}

static struct wdi_device_info *scripted_device(const char *line)
{
    struct wdi_device_info *device = calloc(1, sizeof(*device));
    int length = 0;
    unsigned int vid = 0;
    unsigned int pid = 0;
    unsigned int mi = 0;
    sscanf(line, "%x %x %u %n", &vid, &pid, &mi, &length);
    device->vid = (unsigned short)vid;
    device->pid = (unsigned short)pid;
    device->mi = (unsigned char)mi;
    line += length;
    device->desc = copied_text(&line, "|\n");
    device->device_id = copied_text(&line, "|\n");
    device->hardware_id = copied_text(&line, "|\n");
    // What the program has no use for, and must not mistake for something else.
    device->driver = strdup("driver of the list");
    device->compatible_id = strdup("compatible id of the list");
    device->upper_filter = strdup("filter of the list");
    device->driver_version = 0x0102030405060708;
    return device;
}

static void quoted(char *line, const char *name, const char *text)
{
    const size_t length = strlen(line);
    const char *quote = text == NULL ? "" : "'";
    snprintf(line + length, LINE - length, " %s=%s%s%s", name, quote, text == NULL ? "null" : text,
             quote);
}

static void note_driver_call(const char *function, const struct wdi_device_info *device,
                             const char *path, const char *inf, BOOL options_are_zero)
{
    char line[LINE];
    snprintf(line, sizeof(line), "%s %x:%x composite=%d mi=%u", function, device->vid, device->pid,
             device->is_composite, device->mi);
    quoted(line, "desc", device->desc);
    quoted(line, "id", device->device_id);
    quoted(line, "hw", device->hardware_id);
    const BOOL rest_is_zero = device->next == NULL && device->driver == NULL &&
                              device->compatible_id == NULL && device->upper_filter == NULL &&
                              device->driver_version == 0;
    strcat(line, rest_is_zero ? " rest=zero" : " rest=something");
    quoted(line, "path", path);
    quoted(line, "inf", inf);
    strcat(line, options_are_zero ? " options=zero" : " options=something");
    note(line);
}

WDI_API const char *WINAPI wdi_strerror(int code)
{
    switch (code) {
    case 0:
        return "Success";
    case -15:
        return "Operation requires elevated privileges";
    default:
        return "Another failure";
    }
}

WDI_API int WINAPI wdi_set_log_level(int level)
{
    char line[LINE];
    snprintf(line, sizeof(line), "set_log_level %d", level);
    note(line);
    return 0;
}

WDI_API int WINAPI wdi_create_list(struct wdi_device_info **list,
                                   struct wdi_options_create_list *options)
{
    char text[LINE];
    snprintf(text, sizeof(text), "create_list all=%d hubs=%d trim=%d", options->list_all,
             options->list_hubs, options->trim_whitespaces);
    note(text);
    *list = NULL;
    const char *line = script_line("list ", s_listings++);
    if (line == NULL || atoi(line) != 0) {
        return line == NULL ? -1 : atoi(line);
    }
    struct wdi_device_info **end = list;
    for (line = line_after(line); strncmp(line, "device ", 7) == 0; line = line_after(line)) {
        *end = scripted_device(line + 7);
        end = &(*end)->next;
    }
    return 0;
}

// What a reader finds in the list afterwards is no text of it any more.
static void wipe(char *text)
{
    memset(text, '#', strlen(text));
    free(text);
}

WDI_API int WINAPI wdi_destroy_list(struct wdi_device_info *list)
{
    note("destroy_list");
    while (list != NULL) {
        struct wdi_device_info *next = list->next;
        wipe(list->desc);
        wipe(list->device_id);
        wipe(list->hardware_id);
        wipe(list->driver);
        wipe(list->compatible_id);
        wipe(list->upper_filter);
        free(list);
        list = next;
    }
    return 0;
}

WDI_API int WINAPI wdi_prepare_driver(struct wdi_device_info *device, const char *path,
                                      const char *inf, struct wdi_options_prepare_driver *options)
{
    const BOOL zero = options->driver_type == 0 && options->vendor_name == NULL &&
                      options->device_guid == NULL && !options->disable_cat &&
                      !options->disable_signing && options->cert_subject == NULL &&
                      !options->use_wcid_driver && !options->external_inf;
    note_driver_call("prepare_driver", device, path, inf, zero);
    return scripted_result("prepare ", 0);
}

WDI_API int WINAPI wdi_install_driver(struct wdi_device_info *device, const char *path,
                                      const char *inf, struct wdi_options_install_driver *options)
{
    const BOOL zero = options->hWnd == NULL && !options->install_filter_driver &&
                      options->pending_install_timeout == 0;
    note_driver_call("install_driver", device, path, inf, zero);
    return scripted_result("install ", s_installations++);
}
