/* The public header as a C program sees it. */
#include <kalix/client.h>

#include <string.h>

int main(void)
{
    uint32_t words[16];
    struct kalix_commands list = {words, sizeof words, 0};
    const struct svga3d_rect rect = {0, 0, 4, 4};
    if (strlen(kalix_version()) == 0 || kalix_open("/nonexistent", NULL) == 0)
        return 1;
    if (kalix_cmd_set_viewport(&list, 1, &rect) != 0 || list.used != 28)
        return 2;
    return kalix_readback_pixel_bytes(SVGA3D_A8R8G8B8) == 4 ? 0 : 3;
}
