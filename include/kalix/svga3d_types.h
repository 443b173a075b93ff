/* The SVGA3D command interface: what clients emit, the verifier walks and the device executes.
 *
 * A command is {u32 id, u32 body bytes} and a body. Each body's fixed part is a record here; what
 * follows it (boxes, rectangles, states, declarations) is said in its comment. All words are 32-bit
 * little-endian, float is an IEEE single. Colour words are 0xAARRGGBB.
 *
 * Wants C11 or C++20. */
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

static const uint32_t SVGA3D_INVALID_ID = 0xFFFFFFFFu;      /* names no surface, no shader, no indices */
static const uint32_t SVGA_GMR_NULL = 0xFFFFFFFFu;          /* no region */
static const uint32_t SVGA_GMR_FRAMEBUFFER = 0xFFFFFFFEu;   /* guest pointers into the framebuffer */

enum svga3d_command {                /* ids, each with the record of its body below */
    SVGA_3D_CMD_BASE = 1040,
    SVGA_3D_CMD_SURFACE_DEFINE = 1040,
    SVGA_3D_CMD_SURFACE_DESTROY = 1041,
    SVGA_3D_CMD_SURFACE_COPY = 1042,
    SVGA_3D_CMD_SURFACE_STRETCHBLT = 1043,
    SVGA_3D_CMD_SURFACE_DMA = 1044,
    SVGA_3D_CMD_CONTEXT_DEFINE = 1045,
    SVGA_3D_CMD_CONTEXT_DESTROY = 1046,
    SVGA_3D_CMD_SETTRANSFORM = 1047,
    SVGA_3D_CMD_SETZRANGE = 1048,
    SVGA_3D_CMD_SETRENDERSTATE = 1049,
    SVGA_3D_CMD_SETRENDERTARGET = 1050,
    SVGA_3D_CMD_SETTEXTURESTATE = 1051,
    SVGA_3D_CMD_SETMATERIAL = 1052,
    SVGA_3D_CMD_SETLIGHTDATA = 1053,
    SVGA_3D_CMD_SETLIGHTENABLED = 1054,
    SVGA_3D_CMD_SETVIEWPORT = 1055,
    SVGA_3D_CMD_SETCLIPPLANE = 1056,
    SVGA_3D_CMD_CLEAR = 1057,
    SVGA_3D_CMD_PRESENT = 1058,
    SVGA_3D_CMD_SHADER_DEFINE = 1059,
    SVGA_3D_CMD_SHADER_DESTROY = 1060,
    SVGA_3D_CMD_SET_SHADER = 1061,
    SVGA_3D_CMD_SET_SHADER_CONST = 1062,
    SVGA_3D_CMD_DRAW_PRIMITIVES = 1063,
    SVGA_3D_CMD_SETSCISSORRECT = 1064,
    SVGA_3D_CMD_BEGIN_QUERY = 1065,
    SVGA_3D_CMD_END_QUERY = 1066,
    SVGA_3D_CMD_WAIT_FOR_QUERY = 1067,
    SVGA_3D_CMD_PRESENT_READBACK = 1068,
    SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN = 1069,
    SVGA_3D_CMD_LAST = 1069
};

/* ---- Enumerations ------------------------------------------------------------------------ */

enum svga3d_surface_flag {           /* sums of these; hints change nothing that is drawn */
    SVGA3D_SURFACE_CUBEMAP = 0x1,
    SVGA3D_SURFACE_HINT_STATIC = 0x2,
    SVGA3D_SURFACE_HINT_DYNAMIC = 0x4,
    SVGA3D_SURFACE_HINT_INDEXBUFFER = 0x8,
    SVGA3D_SURFACE_HINT_VERTEXBUFFER = 0x10,
    SVGA3D_SURFACE_HINT_TEXTURE = 0x20,
    SVGA3D_SURFACE_HINT_RENDERTARGET = 0x40,
    SVGA3D_SURFACE_HINT_DEPTHSTENCIL = 0x80,
    SVGA3D_SURFACE_HINT_WRITEONLY = 0x100
};

enum svga3d_surface_format {         /* letters from the highest bit down; docs/device.md says which are drawn to */
    SVGA3D_FORMAT_INVALID = 0,
    SVGA3D_X8R8G8B8 = 1,
    SVGA3D_A8R8G8B8 = 2,
    SVGA3D_R5G6B5 = 3,
    SVGA3D_X1R5G5B5 = 4,
    SVGA3D_A1R5G5B5 = 5,
    SVGA3D_A4R4G4B4 = 6,
    SVGA3D_Z_D32 = 7,
    SVGA3D_Z_D16 = 8,
    SVGA3D_Z_D24S8 = 9,
    SVGA3D_Z_D15S1 = 10,
    SVGA3D_LUMINANCE8 = 11,
    SVGA3D_LUMINANCE4_ALPHA4 = 12,
    SVGA3D_LUMINANCE16 = 13,
    SVGA3D_LUMINANCE8_ALPHA8 = 14,
    SVGA3D_DXT1 = 15,
    SVGA3D_DXT2 = 16,
    SVGA3D_DXT3 = 17,
    SVGA3D_DXT4 = 18,
    SVGA3D_DXT5 = 19,
    SVGA3D_BUMPU8V8 = 20,
    SVGA3D_BUMPL6V5U5 = 21,
    SVGA3D_BUMPX8L8V8U8 = 22,
    SVGA3D_BUMPL8V8U8 = 23,
    SVGA3D_ARGB_S10E5 = 24,      /* half ARGB, 8 bytes */
    SVGA3D_ARGB_S23E8 = 25,      /* float ARGB, 16 bytes */
    SVGA3D_A2R10G10B10 = 26,
    SVGA3D_V8U8 = 27,
    SVGA3D_Q8W8V8U8 = 28,
    SVGA3D_CXV8U8 = 29,
    SVGA3D_X8L8V8U8 = 30,
    SVGA3D_A2W10V10U10 = 31,
    SVGA3D_ALPHA8 = 32,
    SVGA3D_R_S10E5 = 33,
    SVGA3D_R_S23E8 = 34,
    SVGA3D_RG_S10E5 = 35,
    SVGA3D_RG_S23E8 = 36,
    SVGA3D_BUFFER = 37,          /* untyped bytes: width is the size */
    SVGA3D_Z_D24X8 = 38,
    SVGA3D_V16U16 = 39,
    SVGA3D_G16R16 = 40,
    SVGA3D_A16B16G16R16 = 41,
    SVGA3D_UYVY = 42,
    SVGA3D_YUY2 = 43,
    SVGA3D_FORMAT_MAX = 44
};

enum svga3d_render_state {           /* docs/device.md has the values at first, and what each does */
    SVGA3D_RS_ZENABLE = 1,
    SVGA3D_RS_ZWRITEENABLE = 2,
    SVGA3D_RS_ALPHATESTENABLE = 3,
    SVGA3D_RS_DITHERENABLE = 4,
    SVGA3D_RS_BLENDENABLE = 5,
    SVGA3D_RS_FOGENABLE = 6,
    SVGA3D_RS_SPECULARENABLE = 7,
    SVGA3D_RS_STENCILENABLE = 8,
    SVGA3D_RS_LIGHTINGENABLE = 9,
    SVGA3D_RS_NORMALIZENORMALS = 10,
    SVGA3D_RS_POINTSPRITEENABLE = 11,
    SVGA3D_RS_POINTSCALEENABLE = 12,
    SVGA3D_RS_STENCILREF = 13,
    SVGA3D_RS_STENCILMASK = 14,
    SVGA3D_RS_STENCILWRITEMASK = 15,
    SVGA3D_RS_FOGSTART = 16,             /* float */
    SVGA3D_RS_FOGEND = 17,               /* float */
    SVGA3D_RS_FOGDENSITY = 18,           /* float */
    SVGA3D_RS_POINTSIZE = 19,            /* float */
    SVGA3D_RS_POINTSIZEMIN = 20,         /* float */
    SVGA3D_RS_POINTSIZEMAX = 21,         /* float */
    SVGA3D_RS_POINTSCALE_A = 22,         /* float */
    SVGA3D_RS_POINTSCALE_B = 23,         /* float */
    SVGA3D_RS_POINTSCALE_C = 24,         /* float */
    SVGA3D_RS_FOGCOLOR = 25,
    SVGA3D_RS_AMBIENT = 26,
    SVGA3D_RS_CLIPPLANEENABLE = 27,      /* bit per plane */
    SVGA3D_RS_FOGMODE = 28,
    SVGA3D_RS_FILLMODE = 29,
    SVGA3D_RS_SHADEMODE = 30,
    SVGA3D_RS_LINEPATTERN = 31,
    SVGA3D_RS_SRCBLEND = 32,
    SVGA3D_RS_DSTBLEND = 33,
    SVGA3D_RS_BLENDEQUATION = 34,
    SVGA3D_RS_CULLMODE = 35,
    SVGA3D_RS_ZFUNC = 36,
    SVGA3D_RS_ALPHAFUNC = 37,
    SVGA3D_RS_STENCILFUNC = 38,
    SVGA3D_RS_STENCILFAIL = 39,
    SVGA3D_RS_STENCILZFAIL = 40,
    SVGA3D_RS_STENCILPASS = 41,
    SVGA3D_RS_ALPHAREF = 42,             /* float */
    SVGA3D_RS_FRONTWINDING = 43,
    SVGA3D_RS_COORDINATETYPE = 44,
    SVGA3D_RS_ZBIAS = 45,                /* float */
    SVGA3D_RS_RANGEFOGENABLE = 46,
    SVGA3D_RS_COLORWRITEENABLE = 47,     /* 1 red, 2 green, 4 blue, 8 alpha */
    SVGA3D_RS_VERTEXMATERIALENABLE = 48,
    SVGA3D_RS_DIFFUSEMATERIALSOURCE = 49,
    SVGA3D_RS_SPECULARMATERIALSOURCE = 50,
    SVGA3D_RS_AMBIENTMATERIALSOURCE = 51,
    SVGA3D_RS_EMISSIVEMATERIALSOURCE = 52,
    SVGA3D_RS_TEXTUREFACTOR = 53,
    SVGA3D_RS_LOCALVIEWER = 54,
    SVGA3D_RS_SCISSORTESTENABLE = 55,
    SVGA3D_RS_BLENDCOLOR = 56,
    SVGA3D_RS_STENCILENABLE2SIDED = 57,
    SVGA3D_RS_CCWSTENCILFUNC = 58,
    SVGA3D_RS_CCWSTENCILFAIL = 59,
    SVGA3D_RS_CCWSTENCILZFAIL = 60,
    SVGA3D_RS_CCWSTENCILPASS = 61,
    SVGA3D_RS_VERTEXBLEND = 62,
    SVGA3D_RS_SLOPESCALEDEPTHBIAS = 63,  /* float */
    SVGA3D_RS_DEPTHBIAS = 64,            /* float */
    SVGA3D_RS_OUTPUTGAMMA = 65,
    SVGA3D_RS_ZVISIBLE = 66,
    SVGA3D_RS_LASTPIXEL = 67,
    SVGA3D_RS_CLIPPING = 68,
    SVGA3D_RS_WRAP0 = 69,                /* to SVGA3D_RS_WRAP0 + 7 */
    SVGA3D_RS_MULTISAMPLEANTIALIAS = 77,
    SVGA3D_RS_MULTISAMPLEMASK = 78,
    SVGA3D_RS_INDEXEDVERTEXBLENDENABLE = 79,
    SVGA3D_RS_TWEENFACTOR = 80,
    SVGA3D_RS_ANTIALIASEDLINEENABLE = 81,
    SVGA3D_RS_COLORWRITEENABLE1 = 82,
    SVGA3D_RS_COLORWRITEENABLE2 = 83,
    SVGA3D_RS_COLORWRITEENABLE3 = 84,
    SVGA3D_RS_SEPARATEALPHABLENDENABLE = 85,
    SVGA3D_RS_SRCBLENDALPHA = 86,
    SVGA3D_RS_DSTBLENDALPHA = 87,
    SVGA3D_RS_BLENDEQUATIONALPHA = 88,
    SVGA3D_RS_TRANSPARENCYANTIALIAS = 89,
    SVGA3D_RS_LINEAA = 90,
    SVGA3D_RS_LINEWIDTH = 91,            /* float */
    SVGA3D_RS_MAX = 92
};

enum svga3d_texture_state {          /* of a stage; a value is a number unless its comment says float */
    SVGA3D_TS_BIND_TEXTURE = 1,
    SVGA3D_TS_COLOROP = 2,
    SVGA3D_TS_COLORARG1 = 3,
    SVGA3D_TS_COLORARG2 = 4,
    SVGA3D_TS_ALPHAOP = 5,
    SVGA3D_TS_ALPHAARG1 = 6,
    SVGA3D_TS_ALPHAARG2 = 7,
    SVGA3D_TS_ADDRESSU = 8,
    SVGA3D_TS_ADDRESSV = 9,
    SVGA3D_TS_MIPFILTER = 10,
    SVGA3D_TS_MAGFILTER = 11,
    SVGA3D_TS_MINFILTER = 12,
    SVGA3D_TS_BORDERCOLOR = 13,
    SVGA3D_TS_TEXCOORDINDEX = 14,
    SVGA3D_TS_TEXTURETRANSFORMFLAGS = 15,
    SVGA3D_TS_TEXCOORDGEN = 16,
    SVGA3D_TS_BUMPENVMAT00 = 17,         /* float, to 20 */
    SVGA3D_TS_TEXTURE_MIPMAP_LEVEL = 21,
    SVGA3D_TS_TEXTURE_LOD_BIAS = 22,     /* float */
    SVGA3D_TS_TEXTURE_ANISOTROPIC_LEVEL = 23,
    SVGA3D_TS_ADDRESSW = 24,
    SVGA3D_TS_GAMMA = 25,
    SVGA3D_TS_BUMPENVLSCALE = 26,        /* float */
    SVGA3D_TS_BUMPENVLOFFSET = 27,       /* float */
    SVGA3D_TS_COLORARG0 = 28,
    SVGA3D_TS_ALPHAARG0 = 29,
    SVGA3D_TS_MAX = 30
};

enum svga3d_combiner {               /* of SVGA3D_TS_COLOROP and ALPHAOP */
    SVGA3D_TC_DISABLE = 1,
    SVGA3D_TC_SELECTARG1 = 2,
    SVGA3D_TC_SELECTARG2 = 3,
    SVGA3D_TC_MODULATE = 4,
    SVGA3D_TC_ADD = 5,
    SVGA3D_TC_ADDSIGNED = 6,
    SVGA3D_TC_SUBTRACT = 7,
    SVGA3D_TC_BLENDTEXTUREALPHA = 8,
    SVGA3D_TC_BLENDDIFFUSEALPHA = 9,
    SVGA3D_TC_BLENDCURRENTALPHA = 10,
    SVGA3D_TC_BLENDFACTORALPHA = 11,
    SVGA3D_TC_MODULATE2X = 12,
    SVGA3D_TC_MODULATE4X = 13,
    SVGA3D_TC_DSDT = 14,
    SVGA3D_TC_DOTPRODUCT3 = 15,
    SVGA3D_TC_BLENDTEXTUREALPHAPM = 16,
    SVGA3D_TC_ADDSIGNED2X = 17,
    SVGA3D_TC_ADDSMOOTH = 18,
    SVGA3D_TC_PREMODULATE = 19,
    SVGA3D_TC_MODULATEALPHA_ADDCOLOR = 20,
    SVGA3D_TC_MODULATECOLOR_ADDALPHA = 21,
    SVGA3D_TC_MODULATEINVALPHA_ADDCOLOR = 22,
    SVGA3D_TC_MODULATEINVCOLOR_ADDALPHA = 23,
    SVGA3D_TC_BUMPENVMAPLUMINANCE = 24,
    SVGA3D_TC_MULTIPLYADD = 25,
    SVGA3D_TC_LERP = 26,
    SVGA3D_TC_MAX = 27
};

enum svga3d_combiner_argument {      /* of SVGA3D_TS_COLORARG0 to 2 and ALPHAARG0 to 2 */
    SVGA3D_TA_CONSTANT = 1,              /* the texture factor */
    SVGA3D_TA_PREVIOUS = 2,
    SVGA3D_TA_DIFFUSE = 3,
    SVGA3D_TA_TEXTURE = 4,
    SVGA3D_TA_SPECULAR = 5
};

enum svga3d_texture_address {        /* of SVGA3D_TS_ADDRESSU, V, W */
    SVGA3D_TEX_ADDRESS_WRAP = 1,
    SVGA3D_TEX_ADDRESS_MIRROR = 2,
    SVGA3D_TEX_ADDRESS_CLAMP = 3,
    SVGA3D_TEX_ADDRESS_BORDER = 4,
    SVGA3D_TEX_ADDRESS_MIRRORONCE = 5,
    SVGA3D_TEX_ADDRESS_EDGE = 6
};

enum svga3d_texture_filter {         /* of SVGA3D_TS_MIPFILTER, MAGFILTER, MINFILTER */
    SVGA3D_TEX_FILTER_NONE = 0,
    SVGA3D_TEX_FILTER_NEAREST = 1,
    SVGA3D_TEX_FILTER_LINEAR = 2,
    SVGA3D_TEX_FILTER_ANISOTROPIC = 3
};

enum svga3d_transform {              /* which matrix */
    SVGA3D_TRANSFORM_WORLD = 1,
    SVGA3D_TRANSFORM_VIEW = 2,
    SVGA3D_TRANSFORM_PROJECTION = 3,
    SVGA3D_TRANSFORM_TEXTURE0 = 4,       /* to 11 */
    SVGA3D_TRANSFORM_WORLD1 = 12,        /* to 14 */
    SVGA3D_TRANSFORM_MAX = 15
};

enum svga3d_render_target {          /* which target */
    SVGA3D_RT_DEPTH = 0,
    SVGA3D_RT_STENCIL = 1,
    SVGA3D_RT_COLOR0 = 2,                /* to 9 */
    SVGA3D_RT_MAX = 10
};

enum svga3d_primitive {              /* what is drawn of vertices */
    SVGA3D_PRIMITIVE_TRIANGLELIST = 1,
    SVGA3D_PRIMITIVE_POINTLIST = 2,
    SVGA3D_PRIMITIVE_LINELIST = 3,
    SVGA3D_PRIMITIVE_LINESTRIP = 4,
    SVGA3D_PRIMITIVE_TRIANGLESTRIP = 5,
    SVGA3D_PRIMITIVE_TRIANGLEFAN = 6
};

enum svga3d_declaration_type {       /* of an element of a vertex */
    SVGA3D_DECLTYPE_FLOAT1 = 0,
    SVGA3D_DECLTYPE_FLOAT2 = 1,
    SVGA3D_DECLTYPE_FLOAT3 = 2,
    SVGA3D_DECLTYPE_FLOAT4 = 3,
    SVGA3D_DECLTYPE_D3DCOLOR = 4,        /* bytes b, g, r, a */
    SVGA3D_DECLTYPE_UBYTE4 = 5,
    SVGA3D_DECLTYPE_SHORT2 = 6,
    SVGA3D_DECLTYPE_SHORT4 = 7,
    SVGA3D_DECLTYPE_UBYTE4N = 8,
    SVGA3D_DECLTYPE_SHORT2N = 9,
    SVGA3D_DECLTYPE_SHORT4N = 10,
    SVGA3D_DECLTYPE_USHORT2N = 11,
    SVGA3D_DECLTYPE_USHORT4N = 12,
    SVGA3D_DECLTYPE_UDEC3 = 13,
    SVGA3D_DECLTYPE_DEC3N = 14,
    SVGA3D_DECLTYPE_FLOAT16_2 = 15,
    SVGA3D_DECLTYPE_FLOAT16_4 = 16,
    SVGA3D_DECLTYPE_MAX = 17
};

enum svga3d_declaration_usage {      /* what an element of a vertex is */
    SVGA3D_DECLUSAGE_POSITION = 0,
    SVGA3D_DECLUSAGE_BLENDWEIGHT = 1,
    SVGA3D_DECLUSAGE_BLENDINDICES = 2,
    SVGA3D_DECLUSAGE_NORMAL = 3,
    SVGA3D_DECLUSAGE_PSIZE = 4,
    SVGA3D_DECLUSAGE_TEXCOORD = 5,
    SVGA3D_DECLUSAGE_TANGENT = 6,
    SVGA3D_DECLUSAGE_BINORMAL = 7,
    SVGA3D_DECLUSAGE_POSITIONT = 9,      /* already in target pixels */
    SVGA3D_DECLUSAGE_COLOR = 10,         /* index 0 diffuse, 1 specular */
    SVGA3D_DECLUSAGE_FOG = 11,
    SVGA3D_DECLUSAGE_DEPTH = 12
};

enum svga3d_compare {                /* of SVGA3D_RS_ZFUNC, ALPHAFUNC, STENCILFUNC: the new value against the old */
    SVGA3D_CMP_NEVER = 1,
    SVGA3D_CMP_LESS = 2,
    SVGA3D_CMP_EQUAL = 3,
    SVGA3D_CMP_LESSEQUAL = 4,
    SVGA3D_CMP_GREATER = 5,
    SVGA3D_CMP_NOTEQUAL = 6,
    SVGA3D_CMP_GREATEREQUAL = 7,
    SVGA3D_CMP_ALWAYS = 8
};

enum svga3d_stencil_op {             /* of SVGA3D_RS_STENCILFAIL, STENCILZFAIL, STENCILPASS */
    SVGA3D_STENCILOP_KEEP = 1,
    SVGA3D_STENCILOP_ZERO = 2,
    SVGA3D_STENCILOP_REPLACE = 3,
    SVGA3D_STENCILOP_INCRSAT = 4,
    SVGA3D_STENCILOP_DECRSAT = 5,
    SVGA3D_STENCILOP_INVERT = 6,
    SVGA3D_STENCILOP_INCR = 7,
    SVGA3D_STENCILOP_DECR = 8
};

enum svga3d_blend_factor {           /* of SVGA3D_RS_SRCBLEND, DSTBLEND */
    SVGA3D_BLENDOP_ZERO = 1,
    SVGA3D_BLENDOP_ONE = 2,
    SVGA3D_BLENDOP_SRCCOLOR = 3,
    SVGA3D_BLENDOP_INVSRCCOLOR = 4,
    SVGA3D_BLENDOP_SRCALPHA = 5,
    SVGA3D_BLENDOP_INVSRCALPHA = 6,
    SVGA3D_BLENDOP_DESTALPHA = 7,
    SVGA3D_BLENDOP_INVDESTALPHA = 8,
    SVGA3D_BLENDOP_DESTCOLOR = 9,
    SVGA3D_BLENDOP_INVDESTCOLOR = 10,
    SVGA3D_BLENDOP_SRCALPHASAT = 11,
    SVGA3D_BLENDOP_BLENDFACTOR = 12,
    SVGA3D_BLENDOP_INVBLENDFACTOR = 13
};

enum svga3d_blend_equation {         /* of SVGA3D_RS_BLENDEQUATION */
    SVGA3D_BLENDEQ_ADD = 1,
    SVGA3D_BLENDEQ_SUBTRACT = 2,
    SVGA3D_BLENDEQ_REVSUBTRACT = 3,
    SVGA3D_BLENDEQ_MINIMUM = 4,
    SVGA3D_BLENDEQ_MAXIMUM = 5
};

/* Of SVGA3D_RS_CULLMODE, which culls it, and of materials. */
enum svga3d_face { SVGA3D_FACE_NONE = 1, SVGA3D_FACE_FRONT = 2, SVGA3D_FACE_BACK = 3, SVGA3D_FACE_FRONT_BACK = 4 };
/* Of SVGA3D_RS_FRONTWINDING. */
enum svga3d_winding { SVGA3D_FRONTWINDING_CW = 1, SVGA3D_FRONTWINDING_CCW = 2 };
/* Of SVGA3D_RS_FILLMODE. */
enum svga3d_fill { SVGA3D_FILLMODE_POINT = 1, SVGA3D_FILLMODE_LINE = 2, SVGA3D_FILLMODE_FILL = 3 };
/* Of SVGA3D_RS_SHADEMODE. */
enum svga3d_shade { SVGA3D_SHADEMODE_FLAT = 1, SVGA3D_SHADEMODE_SMOOTH = 2 };
/* Sums of these. */
enum svga3d_clear_flag { SVGA3D_CLEAR_COLOR = 1, SVGA3D_CLEAR_DEPTH = 2, SVGA3D_CLEAR_STENCIL = 4 };
enum svga3d_light_type {             /* of a light */
    SVGA3D_LIGHTTYPE_POINT = 1,
    SVGA3D_LIGHTTYPE_SPOT1 = 2,
    SVGA3D_LIGHTTYPE_SPOT2 = 3,
    SVGA3D_LIGHTTYPE_DIRECTIONAL = 4
};
enum svga3d_transfer {               /* the direction of a surface DMA */
    SVGA3D_WRITE_HOST_VRAM = 1,          /* guest memory to surface */
    SVGA3D_READ_HOST_VRAM = 2            /* surface to guest memory */
};
/* The nearest pixel, or the four around. */
enum svga3d_stretch_mode { SVGA3D_STRETCH_BLT_POINT = 0, SVGA3D_STRETCH_BLT_LINEAR = 1 };
/* Of vertices and of pixels. */
enum svga3d_shader_type { SVGA3D_SHADERTYPE_VS = 1, SVGA3D_SHADERTYPE_PS = 2 };
/* What is counted: samples that pass. */
enum svga3d_query_type { SVGA3D_QUERYTYPE_OCCLUSION = 0, SVGA3D_QUERYTYPE_MAX = 1 };
enum svga3d_query_state {            /* of a query result */
    SVGA3D_QUERYSTATE_PENDING = 0,
    SVGA3D_QUERYSTATE_SUCCEEDED = 1,
    SVGA3D_QUERYSTATE_FAILED = 2
};
enum svga3d_device_limit {           /* how many there are, all numbered from 0 */
    SVGA3D_FACES = 6,
    SVGA3D_LIGHTS = 8,
    SVGA3D_TEXTURE_STAGES = 8,
    SVGA3D_CLIP_PLANES = 6
};

/* ---- Records ----------------------------------------------------------------------------- */

/* What these names mean in every record that has them:
 *   cid  the context
 *   sid  the surface
 *   shid  the shader, a number of the context's
 *   face  0, or the face of a cube map, 0 to 5
 *   mipmap  the level, 0 the largest
 *   x, y  the left upper pixel
 *   z  the first slice of a volume, 0 of a picture
 *   w, h  pixels
 *   d  slices, 1 of a picture
 *   srcx, srcy  the left upper pixel in the source
 *   srcz  the first slice in the source
 *   width, height  pixels
 *   depth  slices, 1 of a picture
 *   left, top  the first pixel inside
 *   right, bottom  the first pixel outside
 *   r, g, b, a  0 to 1
 *   gmr_id  the region, of a DMA buffer or SVGA_GMR_FRAMEBUFFER
 *   offset  bytes from the beginning
 *   stride  bytes from element to element
 *   source, destination  the images
 *   source_box, destination_box  what of the image is meant
 *   source_rect, destination_rect  what of the image and of the screen is meant
 *   diffuse, ambient, specular, emissive  colours
 *   flags  a sum of the enumeration of that kind
 *   format  enum svga3d_surface_format
 *   rect  pixels of the target */

struct svga3d_command_header {   /* before each command */
    uint32_t id;                 /* enum svga3d_command */
    uint32_t size;               /* body bytes, header not counted */
};
static_assert(sizeof(struct svga3d_command_header) == 8, "device record");

struct svga3d_size { uint32_t width, height, depth; };                         /* of one level */
struct svga3d_rect { uint32_t x, y, w, h; };                                   /* of a picture or target */
struct svga3d_signed_rect { int32_t left, top, right, bottom; };               /* which may begin outside */
struct svga3d_box { uint32_t x, y, z, w, h, d; };                              /* of an image */
struct svga3d_copy_rect { int32_t x, y; uint32_t w, h; int32_t srcx, srcy; };  /* from picture to screen */
struct svga3d_copy_box { uint32_t x, y, z, w, h, d, srcx, srcy, srcz; };       /* from image to image */
struct svga3d_image { uint32_t sid, face, mipmap; };                           /* one level of one face */
struct svga_guest_pointer { uint32_t gmr_id, offset; };                        /* a byte of guest memory */
struct svga3d_guest_image {      /* pixels in guest memory */
    struct svga_guest_pointer pointer;   /* the first of them */
    uint32_t pitch;              /* bytes from row to row */
};
struct svga3d_color4 { float r, g, b, a; };                                    /* a colour */
struct svga3d_array { uint32_t sid, offset, stride; };                         /* elements in a surface */
static_assert(sizeof(struct svga3d_copy_box) == 36 && sizeof(struct svga3d_copy_rect) == 24, "device record");
static_assert(sizeof(struct svga3d_guest_image) == 12 && sizeof(struct svga3d_image) == 12, "device record");

struct svga3d_surface_define {   /* 1040; then one svga3d_size per level, face by face */
    uint32_t sid, flags, format;
    uint32_t mip_levels[SVGA3D_FACES];   /* of each face */
};
struct svga3d_surface_destroy { uint32_t sid; };                               /* 1041 */
struct svga3d_surface_copy { struct svga3d_image source, destination; };       /* 1042; then copy boxes */
struct svga3d_surface_stretchblt {                                             /* 1043 */
    struct svga3d_image source, destination;
    struct svga3d_box source_box, destination_box;
    uint32_t mode;               /* enum svga3d_stretch_mode */
};
struct svga3d_surface_dma {      /* 1044; then copy boxes, then optionally struct svga3d_surface_dma_suffix */
    struct svga3d_guest_image guest;     /* pitch 0: packed rows of the surface's width */
    struct svga3d_image host;            /* the surface's image */
    uint32_t transfer;           /* enum svga3d_transfer */
};
struct svga3d_surface_dma_suffix {       /* the end of a 1044 that has one */
    uint32_t suffix_size;        /* bytes of this record */
    uint32_t maximum_offset;     /* bytes behind the guest pointer that may be reached */
    uint32_t flags;              /* not read */
};
struct svga3d_context { uint32_t cid; };                                       /* 1045, 1046 */
struct svga3d_set_transform {    /* 1047 */
    uint32_t cid;
    uint32_t type;               /* enum svga3d_transform */
    float matrix[16];            /* for row vectors, row by row: the translation is 12 to 14 */
};
struct svga3d_set_z_range {      /* 1048 */
    uint32_t cid;
    float min, max;              /* what the depths 0 and 1 become */
};
struct svga3d_render_state_value {       /* 1049: cid, then these */
    uint32_t state;              /* enum svga3d_render_state */
    uint32_t value;              /* of a float its bits */
};
struct svga3d_set_render_target {        /* 1050 */
    uint32_t cid;
    uint32_t type;               /* enum svga3d_render_target */
    struct svga3d_image target;  /* sid SVGA3D_INVALID_ID takes the target away */
};
struct svga3d_texture_state_value {      /* 1051: cid, then these */
    uint32_t stage;              /* 0 to 7 */
    uint32_t name;               /* enum svga3d_texture_state */
    uint32_t value;              /* of a float its bits */
};
struct svga3d_material {         /* how lit vertices answer light */
    struct svga3d_color4 diffuse, ambient, specular, emissive;
    float shininess;             /* the specular exponent */
};
struct svga3d_set_material {     /* 1052 */
    uint32_t cid;
    uint32_t face;               /* enum svga3d_face */
    struct svga3d_material material;     /* in place of the one before */
};
struct svga3d_light {            /* one of a context's eight */
    uint32_t type;               /* enum svga3d_light_type */
    uint32_t in_world_space;     /* 0: place and direction are of view space */
    struct svga3d_color4 diffuse, specular, ambient;
    float position[4];           /* of points and spots */
    float direction[4];          /* of spots and directional lights: where the light goes */
    float range;                 /* beyond this distance it is dark */
    float falloff;               /* the exponent between the cones */
    float attenuation0, attenuation1, attenuation2;     /* light is divided by a0 + a1 d + a2 d^2 */
    float theta, phi;            /* a spot's inner and outer cone, the whole angle, radians */
};
struct svga3d_set_light_data {   /* 1053 */
    uint32_t cid;
    uint32_t index;              /* 0 to 7 */
    struct svga3d_light light;   /* in place of the one before */
};
struct svga3d_set_light_enabled {        /* 1054 */
    uint32_t cid;
    uint32_t index;              /* 0 to 7 */
    uint32_t enabled;            /* 0 or 1 */
};
struct svga3d_set_viewport { uint32_t cid; struct svga3d_rect rect; };         /* 1055 */
struct svga3d_set_clip_plane {   /* 1056 */
    uint32_t cid;
    uint32_t index;              /* 0 to 5 */
    float plane[4];              /* a, b, c, d: kept is where ax + by + cz + d >= 0, in the world */
};
struct svga3d_clear {            /* 1057; then rects */
    uint32_t cid;
    uint32_t flags;              /* enum svga3d_clear_flag */
    uint32_t color;              /* 0xAARRGGBB */
    float depth;                 /* 0 near to 1 far */
    uint32_t stencil;            /* 0 to 255 */
};
struct svga3d_present { uint32_t sid; };                                       /* 1058; then copy rects */
struct svga3d_shader_define {    /* 1059; then tokens */
    uint32_t cid, shid;
    uint32_t type;               /* enum svga3d_shader_type */
};
struct svga3d_shader_destroy {   /* 1060 */
    uint32_t cid, shid;
    uint32_t type;               /* enum svga3d_shader_type */
};
struct svga3d_set_shader {       /* 1061 */
    uint32_t cid;
    uint32_t type;               /* enum svga3d_shader_type */
    uint32_t shid;               /* SVGA3D_INVALID_ID: none */
};
struct svga3d_set_shader_const { /* 1062 */
    uint32_t cid;
    uint32_t reg;                /* the register */
    uint32_t type;               /* enum svga3d_shader_type */
    uint32_t constant_type;      /* 0 to 2 */
    uint32_t values[4];          /* kept for when shaders run */
};
struct svga3d_draw_primitives {  /* 1063; then both, then divisors */
    uint32_t cid;
    uint32_t declarations;       /* how many follow */
    uint32_t ranges;             /* how many follow these */
};
struct svga3d_vertex_declaration {       /* where an element of all vertices lies */
    uint32_t type;               /* enum svga3d_declaration_type */
    uint32_t method;             /* not read */
    uint32_t usage;              /* enum svga3d_declaration_usage */
    uint32_t usage_index;        /* e.g. of texture coordinates their set */
    struct svga3d_array array;   /* offset is the first vertex's element */
    uint32_t first_hint, last_hint;      /* not read */
};
struct svga3d_primitive_range {  /* what a draw makes of the vertices */
    uint32_t primitive_type;     /* enum svga3d_primitive */
    uint32_t primitive_count;    /* at most 2^20 */
    struct svga3d_array index_array;     /* sid SVGA3D_INVALID_ID: vertices in their order */
    uint32_t index_width;        /* bytes: 2 or 4 */
    int32_t index_bias;          /* added to each index */
};
static_assert(sizeof(struct svga3d_vertex_declaration) == 36 && sizeof(struct svga3d_primitive_range) == 28,
              "device record");
struct svga3d_set_scissor_rect { uint32_t cid; struct svga3d_rect rect; };     /* 1064 */
struct svga3d_begin_query {      /* 1065 */
    uint32_t cid;
    uint32_t type;               /* enum svga3d_query_type */
};
struct svga3d_query {            /* 1066, 1067 */
    uint32_t cid;
    uint32_t type;               /* enum svga3d_query_type */
    struct svga_guest_pointer result;    /* where a struct svga3d_query_result is written */
};
struct svga3d_query_result {     /* in guest memory */
    uint32_t total_size;         /* bytes of this record */
    uint32_t state;              /* enum svga3d_query_state */
    uint32_t result;             /* samples */
};
struct svga3d_blit_to_screen {   /* 1069; then clip rects, each a signed rect */
    struct svga3d_image source;
    struct svga3d_signed_rect source_rect;
    uint32_t screen_id;          /* 0 and all ones: the screen */
    struct svga3d_signed_rect destination_rect;
};
static_assert(sizeof(struct svga3d_surface_define) == 36 && sizeof(struct svga3d_surface_stretchblt) == 76, "device record");
static_assert(sizeof(struct svga3d_surface_dma) == 28 && sizeof(struct svga3d_set_transform) == 72, "device record");
static_assert(sizeof(struct svga3d_set_material) == 76 && sizeof(struct svga3d_set_light_data) == 124, "device record");
static_assert(sizeof(struct svga3d_clear) == 20 && sizeof(struct svga3d_blit_to_screen) == 48, "device record");
static_assert(sizeof(struct svga3d_set_shader_const) == 32 && sizeof(struct svga3d_query) == 16, "device record");

#ifdef __cplusplus
}
#endif
