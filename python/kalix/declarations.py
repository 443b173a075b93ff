"""The constants, records and prototypes of libkalix, under their names in C.

Written by scripts/python_declarations.py from include/kalix/client.h and what it includes; not to be edited. What each
name means stands in these headers. A record takes its fields in order or by name, and nested ones as tuples:
svga3d_image(sid), svga3d_light(type=SVGA3D_LIGHTTYPE_POINT, diffuse=(1, 1, 1, 1)).
"""
# pylint: disable=invalid-name,too-many-lines
import ctypes as _c


class Record(_c.Structure):
    """A record of the C interface, which shows its fields."""

    def __repr__(self) -> str:
        values = ((name, getattr(self, name)) for name, *_ in self._fields_)
        shown = (f"{name}={value[:] if isinstance(value, _c.Array) else value!r}" for name, value in values)
        return f"{type(self).__name__}({', '.join(shown)})"


SVGA3D_INVALID_ID = 0xFFFFFFFF
SVGA_GMR_NULL = 0xFFFFFFFF
SVGA_GMR_FRAMEBUFFER = 0xFFFFFFFE

# enum kalix_reply_kind
KALIX_REPLY_STATUS = 0
KALIX_REPLY_ERROR = 1

# enum kalix_wire_error
KALIX_EMSGSIZE = 90
KALIX_ENOSYS = 89

# enum kalix_limits
KALIX_MESSAGE_MAX = 1 << 20
KALIX_COMMAND_BUFFER_BYTES = 65536
KALIX_SURFACE_MIPS_MAX = 144
KALIX_READBACK_EXTENT_MAX = 2048
KALIX_OBJECT_BYTES_MAX = 128 << 20
KALIX_OVERLAYS_MAX = 8
KALIX_DUMP_BYTES_MAX = 511
KALIX_LIST_ENTRIES = 10
KALIX_INFO_PIDS = 16

# no type of their own
KALIX_IO_CONNECT = 0x0100
KALIX_IO_LAST = 0x01FF

# no type of their own
KALIX_PLATFORM_MAGIC = 0x7F9E2B50

# enum kalix_platform_message
KALIX_WHO = 1
KALIX_OBJECT = 2

# no type of their own
KALIX_REQUEST_MAGIC = 0x7F9E2B4E

# enum kalix_command
KALIX_GETPARAM = 0
KALIX_DMABUF_ALLOC = 1
KALIX_DMABUF_UNREF = 2
KALIX_CONTEXT_DEFINE = 7
KALIX_CONTEXT_DESTROY = 8
KALIX_SURFACE_DEFINE = 9
KALIX_SURFACE_DESTROY = 10
KALIX_SURFACE_REFERENCE = 11
KALIX_EXECBUF = 12
KALIX_FENCE_WAIT = 14
KALIX_FENCE_SIGNALLED = 15
KALIX_FENCE_UNREF = 16
KALIX_PRESENT = 200
KALIX_FIFOMAP = 201
KALIX_FIFOMAP_CAPS = 202
KALIX_ALLOC_SID = 203
KALIX_PRESENT_PHYS = 206
KALIX_READBACK = 207
KALIX_OVERLAY_DEFINE = 208
KALIX_OVERLAY_DESTROY = 209
KALIX_OVERLAY_VISIBLE = 210
KALIX_OOB_PRESENT = 211
KALIX_SOFTWARE_MODE = 240
KALIX_SVGA_ENABLE = 241
KALIX_SET_MODE = 242
KALIX_SET_CURSOR = 243
KALIX_MOVE_CURSOR = 244
KALIX_DEBUG_RESET = 1000
KALIX_DEBUG_SHOW_SID = 1001
KALIX_DEBUG_SID_INFO = 1002
KALIX_DEBUG_LIST_SIDS = 1003
KALIX_DEBUG_DUMP_SID = 1004
KALIX_DEBUG_FILL_SID = 1005
KALIX_DISCONNECT = 0xDEAD

# enum kalix_param
KALIX_PARAM_HAVE_3D = 2
KALIX_PARAM_CAPABILITIES = 3
KALIX_PARAM_FIFO_CAPABILITIES = 4
KALIX_PARAM_FRAMEBUFFER_BYTES = 5
KALIX_PARAM_3D_HWVERSION = 6
KALIX_PARAM_LAST = 6

# enum svga3d_command
SVGA_3D_CMD_BASE = 1040
SVGA_3D_CMD_SURFACE_DEFINE = 1040
SVGA_3D_CMD_SURFACE_DESTROY = 1041
SVGA_3D_CMD_SURFACE_COPY = 1042
SVGA_3D_CMD_SURFACE_STRETCHBLT = 1043
SVGA_3D_CMD_SURFACE_DMA = 1044
SVGA_3D_CMD_CONTEXT_DEFINE = 1045
SVGA_3D_CMD_CONTEXT_DESTROY = 1046
SVGA_3D_CMD_SETTRANSFORM = 1047
SVGA_3D_CMD_SETZRANGE = 1048
SVGA_3D_CMD_SETRENDERSTATE = 1049
SVGA_3D_CMD_SETRENDERTARGET = 1050
SVGA_3D_CMD_SETTEXTURESTATE = 1051
SVGA_3D_CMD_SETMATERIAL = 1052
SVGA_3D_CMD_SETLIGHTDATA = 1053
SVGA_3D_CMD_SETLIGHTENABLED = 1054
SVGA_3D_CMD_SETVIEWPORT = 1055
SVGA_3D_CMD_SETCLIPPLANE = 1056
SVGA_3D_CMD_CLEAR = 1057
SVGA_3D_CMD_PRESENT = 1058
SVGA_3D_CMD_SHADER_DEFINE = 1059
SVGA_3D_CMD_SHADER_DESTROY = 1060
SVGA_3D_CMD_SET_SHADER = 1061
SVGA_3D_CMD_SET_SHADER_CONST = 1062
SVGA_3D_CMD_DRAW_PRIMITIVES = 1063
SVGA_3D_CMD_SETSCISSORRECT = 1064
SVGA_3D_CMD_BEGIN_QUERY = 1065
SVGA_3D_CMD_END_QUERY = 1066
SVGA_3D_CMD_WAIT_FOR_QUERY = 1067
SVGA_3D_CMD_PRESENT_READBACK = 1068
SVGA_3D_CMD_BLIT_SURFACE_TO_SCREEN = 1069
SVGA_3D_CMD_LAST = 1069

# enum svga3d_surface_flag
SVGA3D_SURFACE_CUBEMAP = 0x1
SVGA3D_SURFACE_HINT_STATIC = 0x2
SVGA3D_SURFACE_HINT_DYNAMIC = 0x4
SVGA3D_SURFACE_HINT_INDEXBUFFER = 0x8
SVGA3D_SURFACE_HINT_VERTEXBUFFER = 0x10
SVGA3D_SURFACE_HINT_TEXTURE = 0x20
SVGA3D_SURFACE_HINT_RENDERTARGET = 0x40
SVGA3D_SURFACE_HINT_DEPTHSTENCIL = 0x80
SVGA3D_SURFACE_HINT_WRITEONLY = 0x100

# enum svga3d_surface_format
SVGA3D_FORMAT_INVALID = 0
SVGA3D_X8R8G8B8 = 1
SVGA3D_A8R8G8B8 = 2
SVGA3D_R5G6B5 = 3
SVGA3D_X1R5G5B5 = 4
SVGA3D_A1R5G5B5 = 5
SVGA3D_A4R4G4B4 = 6
SVGA3D_Z_D32 = 7
SVGA3D_Z_D16 = 8
SVGA3D_Z_D24S8 = 9
SVGA3D_Z_D15S1 = 10
SVGA3D_LUMINANCE8 = 11
SVGA3D_LUMINANCE4_ALPHA4 = 12
SVGA3D_LUMINANCE16 = 13
SVGA3D_LUMINANCE8_ALPHA8 = 14
SVGA3D_DXT1 = 15
SVGA3D_DXT2 = 16
SVGA3D_DXT3 = 17
SVGA3D_DXT4 = 18
SVGA3D_DXT5 = 19
SVGA3D_BUMPU8V8 = 20
SVGA3D_BUMPL6V5U5 = 21
SVGA3D_BUMPX8L8V8U8 = 22
SVGA3D_BUMPL8V8U8 = 23
SVGA3D_ARGB_S10E5 = 24
SVGA3D_ARGB_S23E8 = 25
SVGA3D_A2R10G10B10 = 26
SVGA3D_V8U8 = 27
SVGA3D_Q8W8V8U8 = 28
SVGA3D_CXV8U8 = 29
SVGA3D_X8L8V8U8 = 30
SVGA3D_A2W10V10U10 = 31
SVGA3D_ALPHA8 = 32
SVGA3D_R_S10E5 = 33
SVGA3D_R_S23E8 = 34
SVGA3D_RG_S10E5 = 35
SVGA3D_RG_S23E8 = 36
SVGA3D_BUFFER = 37
SVGA3D_Z_D24X8 = 38
SVGA3D_V16U16 = 39
SVGA3D_G16R16 = 40
SVGA3D_A16B16G16R16 = 41
SVGA3D_UYVY = 42
SVGA3D_YUY2 = 43
SVGA3D_FORMAT_MAX = 44

# enum svga3d_render_state
SVGA3D_RS_ZENABLE = 1
SVGA3D_RS_ZWRITEENABLE = 2
SVGA3D_RS_ALPHATESTENABLE = 3
SVGA3D_RS_DITHERENABLE = 4
SVGA3D_RS_BLENDENABLE = 5
SVGA3D_RS_FOGENABLE = 6
SVGA3D_RS_SPECULARENABLE = 7
SVGA3D_RS_STENCILENABLE = 8
SVGA3D_RS_LIGHTINGENABLE = 9
SVGA3D_RS_NORMALIZENORMALS = 10
SVGA3D_RS_POINTSPRITEENABLE = 11
SVGA3D_RS_POINTSCALEENABLE = 12
SVGA3D_RS_STENCILREF = 13
SVGA3D_RS_STENCILMASK = 14
SVGA3D_RS_STENCILWRITEMASK = 15
SVGA3D_RS_FOGSTART = 16
SVGA3D_RS_FOGEND = 17
SVGA3D_RS_FOGDENSITY = 18
SVGA3D_RS_POINTSIZE = 19
SVGA3D_RS_POINTSIZEMIN = 20
SVGA3D_RS_POINTSIZEMAX = 21
SVGA3D_RS_POINTSCALE_A = 22
SVGA3D_RS_POINTSCALE_B = 23
SVGA3D_RS_POINTSCALE_C = 24
SVGA3D_RS_FOGCOLOR = 25
SVGA3D_RS_AMBIENT = 26
SVGA3D_RS_CLIPPLANEENABLE = 27
SVGA3D_RS_FOGMODE = 28
SVGA3D_RS_FILLMODE = 29
SVGA3D_RS_SHADEMODE = 30
SVGA3D_RS_LINEPATTERN = 31
SVGA3D_RS_SRCBLEND = 32
SVGA3D_RS_DSTBLEND = 33
SVGA3D_RS_BLENDEQUATION = 34
SVGA3D_RS_CULLMODE = 35
SVGA3D_RS_ZFUNC = 36
SVGA3D_RS_ALPHAFUNC = 37
SVGA3D_RS_STENCILFUNC = 38
SVGA3D_RS_STENCILFAIL = 39
SVGA3D_RS_STENCILZFAIL = 40
SVGA3D_RS_STENCILPASS = 41
SVGA3D_RS_ALPHAREF = 42
SVGA3D_RS_FRONTWINDING = 43
SVGA3D_RS_COORDINATETYPE = 44
SVGA3D_RS_ZBIAS = 45
SVGA3D_RS_RANGEFOGENABLE = 46
SVGA3D_RS_COLORWRITEENABLE = 47
SVGA3D_RS_VERTEXMATERIALENABLE = 48
SVGA3D_RS_DIFFUSEMATERIALSOURCE = 49
SVGA3D_RS_SPECULARMATERIALSOURCE = 50
SVGA3D_RS_AMBIENTMATERIALSOURCE = 51
SVGA3D_RS_EMISSIVEMATERIALSOURCE = 52
SVGA3D_RS_TEXTUREFACTOR = 53
SVGA3D_RS_LOCALVIEWER = 54
SVGA3D_RS_SCISSORTESTENABLE = 55
SVGA3D_RS_BLENDCOLOR = 56
SVGA3D_RS_STENCILENABLE2SIDED = 57
SVGA3D_RS_CCWSTENCILFUNC = 58
SVGA3D_RS_CCWSTENCILFAIL = 59
SVGA3D_RS_CCWSTENCILZFAIL = 60
SVGA3D_RS_CCWSTENCILPASS = 61
SVGA3D_RS_VERTEXBLEND = 62
SVGA3D_RS_SLOPESCALEDEPTHBIAS = 63
SVGA3D_RS_DEPTHBIAS = 64
SVGA3D_RS_OUTPUTGAMMA = 65
SVGA3D_RS_ZVISIBLE = 66
SVGA3D_RS_LASTPIXEL = 67
SVGA3D_RS_CLIPPING = 68
SVGA3D_RS_WRAP0 = 69
SVGA3D_RS_MULTISAMPLEANTIALIAS = 77
SVGA3D_RS_MULTISAMPLEMASK = 78
SVGA3D_RS_INDEXEDVERTEXBLENDENABLE = 79
SVGA3D_RS_TWEENFACTOR = 80
SVGA3D_RS_ANTIALIASEDLINEENABLE = 81
SVGA3D_RS_COLORWRITEENABLE1 = 82
SVGA3D_RS_COLORWRITEENABLE2 = 83
SVGA3D_RS_COLORWRITEENABLE3 = 84
SVGA3D_RS_SEPARATEALPHABLENDENABLE = 85
SVGA3D_RS_SRCBLENDALPHA = 86
SVGA3D_RS_DSTBLENDALPHA = 87
SVGA3D_RS_BLENDEQUATIONALPHA = 88
SVGA3D_RS_TRANSPARENCYANTIALIAS = 89
SVGA3D_RS_LINEAA = 90
SVGA3D_RS_LINEWIDTH = 91
SVGA3D_RS_MAX = 92

# enum svga3d_texture_state
SVGA3D_TS_BIND_TEXTURE = 1
SVGA3D_TS_COLOROP = 2
SVGA3D_TS_COLORARG1 = 3
SVGA3D_TS_COLORARG2 = 4
SVGA3D_TS_ALPHAOP = 5
SVGA3D_TS_ALPHAARG1 = 6
SVGA3D_TS_ALPHAARG2 = 7
SVGA3D_TS_ADDRESSU = 8
SVGA3D_TS_ADDRESSV = 9
SVGA3D_TS_MIPFILTER = 10
SVGA3D_TS_MAGFILTER = 11
SVGA3D_TS_MINFILTER = 12
SVGA3D_TS_BORDERCOLOR = 13
SVGA3D_TS_TEXCOORDINDEX = 14
SVGA3D_TS_TEXTURETRANSFORMFLAGS = 15
SVGA3D_TS_TEXCOORDGEN = 16
SVGA3D_TS_BUMPENVMAT00 = 17
SVGA3D_TS_TEXTURE_MIPMAP_LEVEL = 21
SVGA3D_TS_TEXTURE_LOD_BIAS = 22
SVGA3D_TS_TEXTURE_ANISOTROPIC_LEVEL = 23
SVGA3D_TS_ADDRESSW = 24
SVGA3D_TS_GAMMA = 25
SVGA3D_TS_BUMPENVLSCALE = 26
SVGA3D_TS_BUMPENVLOFFSET = 27
SVGA3D_TS_COLORARG0 = 28
SVGA3D_TS_ALPHAARG0 = 29
SVGA3D_TS_MAX = 30

# enum svga3d_combiner
SVGA3D_TC_DISABLE = 1
SVGA3D_TC_SELECTARG1 = 2
SVGA3D_TC_SELECTARG2 = 3
SVGA3D_TC_MODULATE = 4
SVGA3D_TC_ADD = 5
SVGA3D_TC_ADDSIGNED = 6
SVGA3D_TC_SUBTRACT = 7
SVGA3D_TC_BLENDTEXTUREALPHA = 8
SVGA3D_TC_BLENDDIFFUSEALPHA = 9
SVGA3D_TC_BLENDCURRENTALPHA = 10
SVGA3D_TC_BLENDFACTORALPHA = 11
SVGA3D_TC_MODULATE2X = 12
SVGA3D_TC_MODULATE4X = 13
SVGA3D_TC_DSDT = 14
SVGA3D_TC_DOTPRODUCT3 = 15
SVGA3D_TC_BLENDTEXTUREALPHAPM = 16
SVGA3D_TC_ADDSIGNED2X = 17
SVGA3D_TC_ADDSMOOTH = 18
SVGA3D_TC_PREMODULATE = 19
SVGA3D_TC_MODULATEALPHA_ADDCOLOR = 20
SVGA3D_TC_MODULATECOLOR_ADDALPHA = 21
SVGA3D_TC_MODULATEINVALPHA_ADDCOLOR = 22
SVGA3D_TC_MODULATEINVCOLOR_ADDALPHA = 23
SVGA3D_TC_BUMPENVMAPLUMINANCE = 24
SVGA3D_TC_MULTIPLYADD = 25
SVGA3D_TC_LERP = 26
SVGA3D_TC_MAX = 27

# enum svga3d_combiner_argument
SVGA3D_TA_CONSTANT = 1
SVGA3D_TA_PREVIOUS = 2
SVGA3D_TA_DIFFUSE = 3
SVGA3D_TA_TEXTURE = 4
SVGA3D_TA_SPECULAR = 5

# enum svga3d_texture_address
SVGA3D_TEX_ADDRESS_WRAP = 1
SVGA3D_TEX_ADDRESS_MIRROR = 2
SVGA3D_TEX_ADDRESS_CLAMP = 3
SVGA3D_TEX_ADDRESS_BORDER = 4
SVGA3D_TEX_ADDRESS_MIRRORONCE = 5
SVGA3D_TEX_ADDRESS_EDGE = 6

# enum svga3d_texture_filter
SVGA3D_TEX_FILTER_NONE = 0
SVGA3D_TEX_FILTER_NEAREST = 1
SVGA3D_TEX_FILTER_LINEAR = 2
SVGA3D_TEX_FILTER_ANISOTROPIC = 3

# enum svga3d_transform
SVGA3D_TRANSFORM_WORLD = 1
SVGA3D_TRANSFORM_VIEW = 2
SVGA3D_TRANSFORM_PROJECTION = 3
SVGA3D_TRANSFORM_TEXTURE0 = 4
SVGA3D_TRANSFORM_WORLD1 = 12
SVGA3D_TRANSFORM_MAX = 15

# enum svga3d_render_target
SVGA3D_RT_DEPTH = 0
SVGA3D_RT_STENCIL = 1
SVGA3D_RT_COLOR0 = 2
SVGA3D_RT_MAX = 10

# enum svga3d_primitive
SVGA3D_PRIMITIVE_TRIANGLELIST = 1
SVGA3D_PRIMITIVE_POINTLIST = 2
SVGA3D_PRIMITIVE_LINELIST = 3
SVGA3D_PRIMITIVE_LINESTRIP = 4
SVGA3D_PRIMITIVE_TRIANGLESTRIP = 5
SVGA3D_PRIMITIVE_TRIANGLEFAN = 6

# enum svga3d_declaration_type
SVGA3D_DECLTYPE_FLOAT1 = 0
SVGA3D_DECLTYPE_FLOAT2 = 1
SVGA3D_DECLTYPE_FLOAT3 = 2
SVGA3D_DECLTYPE_FLOAT4 = 3
SVGA3D_DECLTYPE_D3DCOLOR = 4
SVGA3D_DECLTYPE_UBYTE4 = 5
SVGA3D_DECLTYPE_SHORT2 = 6
SVGA3D_DECLTYPE_SHORT4 = 7
SVGA3D_DECLTYPE_UBYTE4N = 8
SVGA3D_DECLTYPE_SHORT2N = 9
SVGA3D_DECLTYPE_SHORT4N = 10
SVGA3D_DECLTYPE_USHORT2N = 11
SVGA3D_DECLTYPE_USHORT4N = 12
SVGA3D_DECLTYPE_UDEC3 = 13
SVGA3D_DECLTYPE_DEC3N = 14
SVGA3D_DECLTYPE_FLOAT16_2 = 15
SVGA3D_DECLTYPE_FLOAT16_4 = 16
SVGA3D_DECLTYPE_MAX = 17

# enum svga3d_declaration_usage
SVGA3D_DECLUSAGE_POSITION = 0
SVGA3D_DECLUSAGE_BLENDWEIGHT = 1
SVGA3D_DECLUSAGE_BLENDINDICES = 2
SVGA3D_DECLUSAGE_NORMAL = 3
SVGA3D_DECLUSAGE_PSIZE = 4
SVGA3D_DECLUSAGE_TEXCOORD = 5
SVGA3D_DECLUSAGE_TANGENT = 6
SVGA3D_DECLUSAGE_BINORMAL = 7
SVGA3D_DECLUSAGE_POSITIONT = 9
SVGA3D_DECLUSAGE_COLOR = 10
SVGA3D_DECLUSAGE_FOG = 11
SVGA3D_DECLUSAGE_DEPTH = 12

# enum svga3d_compare
SVGA3D_CMP_NEVER = 1
SVGA3D_CMP_LESS = 2
SVGA3D_CMP_EQUAL = 3
SVGA3D_CMP_LESSEQUAL = 4
SVGA3D_CMP_GREATER = 5
SVGA3D_CMP_NOTEQUAL = 6
SVGA3D_CMP_GREATEREQUAL = 7
SVGA3D_CMP_ALWAYS = 8

# enum svga3d_stencil_op
SVGA3D_STENCILOP_KEEP = 1
SVGA3D_STENCILOP_ZERO = 2
SVGA3D_STENCILOP_REPLACE = 3
SVGA3D_STENCILOP_INCRSAT = 4
SVGA3D_STENCILOP_DECRSAT = 5
SVGA3D_STENCILOP_INVERT = 6
SVGA3D_STENCILOP_INCR = 7
SVGA3D_STENCILOP_DECR = 8

# enum svga3d_blend_factor
SVGA3D_BLENDOP_ZERO = 1
SVGA3D_BLENDOP_ONE = 2
SVGA3D_BLENDOP_SRCCOLOR = 3
SVGA3D_BLENDOP_INVSRCCOLOR = 4
SVGA3D_BLENDOP_SRCALPHA = 5
SVGA3D_BLENDOP_INVSRCALPHA = 6
SVGA3D_BLENDOP_DESTALPHA = 7
SVGA3D_BLENDOP_INVDESTALPHA = 8
SVGA3D_BLENDOP_DESTCOLOR = 9
SVGA3D_BLENDOP_INVDESTCOLOR = 10
SVGA3D_BLENDOP_SRCALPHASAT = 11
SVGA3D_BLENDOP_BLENDFACTOR = 12
SVGA3D_BLENDOP_INVBLENDFACTOR = 13

# enum svga3d_blend_equation
SVGA3D_BLENDEQ_ADD = 1
SVGA3D_BLENDEQ_SUBTRACT = 2
SVGA3D_BLENDEQ_REVSUBTRACT = 3
SVGA3D_BLENDEQ_MINIMUM = 4
SVGA3D_BLENDEQ_MAXIMUM = 5

# enum svga3d_face
SVGA3D_FACE_NONE = 1
SVGA3D_FACE_FRONT = 2
SVGA3D_FACE_BACK = 3
SVGA3D_FACE_FRONT_BACK = 4

# enum svga3d_winding
SVGA3D_FRONTWINDING_CW = 1
SVGA3D_FRONTWINDING_CCW = 2

# enum svga3d_fill
SVGA3D_FILLMODE_POINT = 1
SVGA3D_FILLMODE_LINE = 2
SVGA3D_FILLMODE_FILL = 3

# enum svga3d_shade
SVGA3D_SHADEMODE_FLAT = 1
SVGA3D_SHADEMODE_SMOOTH = 2

# enum svga3d_clear_flag
SVGA3D_CLEAR_COLOR = 1
SVGA3D_CLEAR_DEPTH = 2
SVGA3D_CLEAR_STENCIL = 4

# enum svga3d_light_type
SVGA3D_LIGHTTYPE_POINT = 1
SVGA3D_LIGHTTYPE_SPOT1 = 2
SVGA3D_LIGHTTYPE_SPOT2 = 3
SVGA3D_LIGHTTYPE_DIRECTIONAL = 4

# enum svga3d_transfer
SVGA3D_WRITE_HOST_VRAM = 1
SVGA3D_READ_HOST_VRAM = 2

# enum svga3d_stretch_mode
SVGA3D_STRETCH_BLT_POINT = 0
SVGA3D_STRETCH_BLT_LINEAR = 1

# enum svga3d_shader_type
SVGA3D_SHADERTYPE_VS = 1
SVGA3D_SHADERTYPE_PS = 2

# enum svga3d_query_type
SVGA3D_QUERYTYPE_OCCLUSION = 0
SVGA3D_QUERYTYPE_MAX = 1

# enum svga3d_query_state
SVGA3D_QUERYSTATE_PENDING = 0
SVGA3D_QUERYSTATE_SUCCEEDED = 1
SVGA3D_QUERYSTATE_FAILED = 2

# enum svga3d_device_limit
SVGA3D_FACES = 6
SVGA3D_LIGHTS = 8
SVGA3D_TEXTURE_STAGES = 8
SVGA3D_CLIP_PLANES = 6


class kalix_request_frame(Record):
    _fields_ = (("message_bytes", _c.c_uint32), ("reply_room", _c.c_uint32))


class kalix_reply_frame(Record):
    _fields_ = (("kind", _c.c_uint32), ("value", _c.c_int32), ("data_bytes", _c.c_uint32))


class kalix_io_connect(Record):
    _fields_ = (("type", _c.c_uint16), ("subtype", _c.c_uint16))


class kalix_platform_header(Record):
    _fields_ = (("magic", _c.c_uint32), ("message", _c.c_uint32))


class kalix_who_rep(Record):
    _fields_ = (("process", _c.c_uint32), ("user", _c.c_uint32), ("server_process", _c.c_uint32), ("zero", _c.c_uint32))


class kalix_object_req(Record):
    _fields_ = (("name", _c.c_char * 64), ("bytes", _c.c_uint32), ("make", _c.c_uint32))


class kalix_request_header(Record):
    _fields_ = (("magic", _c.c_uint32), ("command", _c.c_int32), ("payload_length", _c.c_int32))


class getparam_req(Record):
    _fields_ = (("value", _c.c_uint64), ("param", _c.c_uint32), ("pad", _c.c_uint32))


class dmabuf_alloc_req(Record):
    _fields_ = (
        ("data_offset", _c.c_uint64), ("handle", _c.c_uint32), ("gmr_id", _c.c_uint32), ("gmr_offset", _c.c_uint32),
        ("handle_echo", _c.c_uint32))


class dmabuf_unref_req(Record):
    _fields_ = (("handle", _c.c_uint32),)


class context_define_req(Record):
    _fields_ = (("cid", _c.c_uint32), ("pad", _c.c_uint32))


class context_destroy_req(Record):
    _fields_ = (("cid", _c.c_uint32),)


class surface_size(Record):
    _fields_ = (("width", _c.c_uint32), ("height", _c.c_uint32), ("depth", _c.c_uint32), ("unused", _c.c_uint32))


class surface_define_req(Record):
    _fields_ = (
        ("flags", _c.c_uint32), ("format", _c.c_uint32), ("mip_levels", _c.c_uint32 * 6),
        ("sizes_offset_low", _c.c_uint32), ("sizes_offset_high", _c.c_uint32), ("unused", _c.c_uint32),
        ("shared", _c.c_uint32), ("sid", _c.c_uint32))


class surface_destroy_req(Record):
    _fields_ = (("sid", _c.c_uint32),)


class surface_reference_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("format", _c.c_uint32), ("mip_levels", _c.c_uint32 * 6), ("pad", _c.c_uint32 * 6))


class execbuf_req(Record):
    _fields_ = (
        ("buffer_id", _c.c_uint64), ("byte_count", _c.c_uint32), ("delay_us", _c.c_uint32), ("pad", _c.c_uint32 * 4))


class execbuf_rep(Record):
    _fields_ = (
        ("fence_handle", _c.c_uint32), ("fence_flags", _c.c_uint32), ("seqno", _c.c_uint32),
        ("passed_seqno", _c.c_uint32), ("unchanged0", _c.c_uint32), ("error", _c.c_int32),
        ("unchanged1", _c.c_uint32 * 2))


class fence_wait_req(Record):
    _fields_ = (("seqno", _c.c_uint32),)


class fence_signalled_req(Record):
    _fields_ = (
        ("seqno", _c.c_uint32), ("flags", _c.c_uint32), ("signalled", _c.c_int32), ("device_seqno", _c.c_uint32),
        ("signal_mask", _c.c_uint32), ("pad", _c.c_uint32))


class present_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("x", _c.c_int32), ("y", _c.c_int32), ("width", _c.c_int32), ("height", _c.c_int32))


class present_phys_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("x", _c.c_uint32), ("y", _c.c_uint32), ("width", _c.c_uint32), ("height", _c.c_uint32),
        ("pad", _c.c_uint32), ("phys_addr", _c.c_uint64))


class overlay_define_req(Record):
    _fields_ = (
        ("x", _c.c_int32), ("y", _c.c_int32), ("width", _c.c_uint32), ("height", _c.c_uint32),
        ("buffer_count", _c.c_uint32), ("id", _c.c_uint32), ("sid0", _c.c_uint32), ("sid1", _c.c_uint32),
        ("phys_addr0", _c.c_uint64), ("phys_addr1", _c.c_uint64))


class overlay_destroy_req(Record):
    _fields_ = (("id", _c.c_uint32),)


class overlay_visible_req(Record):
    _fields_ = (("id", _c.c_uint32), ("visible", _c.c_uint32))


class oob_present_req(Record):
    _fields_ = (("overlay_id", _c.c_uint32),)


class svga_enable_req(Record):
    _fields_ = (("enable", _c.c_uint32),)


class set_mode_req(Record):
    _fields_ = (("width", _c.c_uint32), ("height", _c.c_uint32), ("bpp", _c.c_uint32))


class set_cursor_req(Record):
    _fields_ = (
        ("id", _c.c_uint32), ("hotspot_x", _c.c_uint32), ("hotspot_y", _c.c_uint32), ("width", _c.c_uint32),
        ("height", _c.c_uint32), ("unused", _c.c_uint32))


class move_cursor_req(Record):
    _fields_ = (("visible", _c.c_uint32), ("x", _c.c_uint32), ("y", _c.c_uint32), ("screen_id", _c.c_uint32))


class fifomap_req(Record):
    _fields_ = (("index", _c.c_uint32), ("value", _c.c_uint32))


class fifomap_caps_rep(Record):
    _fields_ = (("words", _c.c_uint32 * 256),)


class alloc_sid_req(Record):
    _fields_ = (("sid", _c.c_uint32), ("unused", _c.c_uint32))


class readback_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("x", _c.c_uint32), ("y", _c.c_uint32), ("w", _c.c_uint32), ("h", _c.c_uint32),
        ("pitch", _c.c_uint32), ("shm_number", _c.c_uint64), ("shm_size", _c.c_uint32), ("unused0", _c.c_uint32),
        ("fb_offset", _c.c_uint64), ("use_shm", _c.c_uint8), ("unused1", _c.c_uint8 * 7))


class software_mode_req(Record):
    _fields_ = (("software_mode", _c.c_uint32), ("unused", _c.c_uint32))


class show_sid_req(Record):
    _fields_ = (("sid", _c.c_uint32),)


class sid_info_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("pids", _c.c_uint32 * KALIX_INFO_PIDS), ("unused0", _c.c_uint32), ("width", _c.c_uint32),
        ("height", _c.c_uint32), ("depth", _c.c_uint32), ("flags", _c.c_uint32), ("format", _c.c_uint32),
        ("ref_count", _c.c_uint32), ("unused1", _c.c_uint32))


class sid_entry(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("width", _c.c_uint32), ("height", _c.c_uint32), ("depth", _c.c_uint32),
        ("flags", _c.c_uint32), ("format", _c.c_uint32), ("ref_count", _c.c_uint32), ("pids", _c.c_uint32 * 2),
        ("more", _c.c_uint32))


class list_sids_req(Record):
    _fields_ = (("first", _c.c_int32), ("more", _c.c_uint32), ("entries", sid_entry * KALIX_LIST_ENTRIES))


class dump_sid_req(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("offset", _c.c_uint32), ("row_bytes", _c.c_uint32), ("stride", _c.c_int32),
        ("rows", _c.c_uint32), ("unused", _c.c_uint32), ("data", _c.c_uint8 * 512))


class fill_sid_req(Record):
    _fields_ = (("sid", _c.c_uint32), ("pixel", _c.c_uint32))


class svga3d_command_header(Record):
    _fields_ = (("id", _c.c_uint32), ("size", _c.c_uint32))


class svga3d_size(Record):
    _fields_ = (("width", _c.c_uint32), ("height", _c.c_uint32), ("depth", _c.c_uint32))


class svga3d_rect(Record):
    _fields_ = (("x", _c.c_uint32), ("y", _c.c_uint32), ("w", _c.c_uint32), ("h", _c.c_uint32))


class svga3d_signed_rect(Record):
    _fields_ = (("left", _c.c_int32), ("top", _c.c_int32), ("right", _c.c_int32), ("bottom", _c.c_int32))


class svga3d_box(Record):
    _fields_ = (
        ("x", _c.c_uint32), ("y", _c.c_uint32), ("z", _c.c_uint32), ("w", _c.c_uint32), ("h", _c.c_uint32),
        ("d", _c.c_uint32))


class svga3d_copy_rect(Record):
    _fields_ = (
        ("x", _c.c_int32), ("y", _c.c_int32), ("w", _c.c_uint32), ("h", _c.c_uint32), ("srcx", _c.c_int32),
        ("srcy", _c.c_int32))


class svga3d_copy_box(Record):
    _fields_ = (
        ("x", _c.c_uint32), ("y", _c.c_uint32), ("z", _c.c_uint32), ("w", _c.c_uint32), ("h", _c.c_uint32),
        ("d", _c.c_uint32), ("srcx", _c.c_uint32), ("srcy", _c.c_uint32), ("srcz", _c.c_uint32))


class svga3d_image(Record):
    _fields_ = (("sid", _c.c_uint32), ("face", _c.c_uint32), ("mipmap", _c.c_uint32))


class svga_guest_pointer(Record):
    _fields_ = (("gmr_id", _c.c_uint32), ("offset", _c.c_uint32))


class svga3d_guest_image(Record):
    _fields_ = (("pointer", svga_guest_pointer), ("pitch", _c.c_uint32))


class svga3d_color4(Record):
    _fields_ = (("r", _c.c_float), ("g", _c.c_float), ("b", _c.c_float), ("a", _c.c_float))


class svga3d_array(Record):
    _fields_ = (("sid", _c.c_uint32), ("offset", _c.c_uint32), ("stride", _c.c_uint32))


class svga3d_surface_define(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("flags", _c.c_uint32), ("format", _c.c_uint32),
        ("mip_levels", _c.c_uint32 * SVGA3D_FACES))


class svga3d_surface_destroy(Record):
    _fields_ = (("sid", _c.c_uint32),)


class svga3d_surface_copy(Record):
    _fields_ = (("source", svga3d_image), ("destination", svga3d_image))


class svga3d_surface_stretchblt(Record):
    _fields_ = (
        ("source", svga3d_image), ("destination", svga3d_image), ("source_box", svga3d_box),
        ("destination_box", svga3d_box), ("mode", _c.c_uint32))


class svga3d_surface_dma(Record):
    _fields_ = (("guest", svga3d_guest_image), ("host", svga3d_image), ("transfer", _c.c_uint32))


class svga3d_surface_dma_suffix(Record):
    _fields_ = (("suffix_size", _c.c_uint32), ("maximum_offset", _c.c_uint32), ("flags", _c.c_uint32))


class svga3d_context(Record):
    _fields_ = (("cid", _c.c_uint32),)


class svga3d_set_transform(Record):
    _fields_ = (("cid", _c.c_uint32), ("type", _c.c_uint32), ("matrix", _c.c_float * 16))


class svga3d_set_z_range(Record):
    _fields_ = (("cid", _c.c_uint32), ("min", _c.c_float), ("max", _c.c_float))


class svga3d_render_state_value(Record):
    _fields_ = (("state", _c.c_uint32), ("value", _c.c_uint32))


class svga3d_set_render_target(Record):
    _fields_ = (("cid", _c.c_uint32), ("type", _c.c_uint32), ("target", svga3d_image))


class svga3d_texture_state_value(Record):
    _fields_ = (("stage", _c.c_uint32), ("name", _c.c_uint32), ("value", _c.c_uint32))


class svga3d_material(Record):
    _fields_ = (
        ("diffuse", svga3d_color4), ("ambient", svga3d_color4), ("specular", svga3d_color4),
        ("emissive", svga3d_color4), ("shininess", _c.c_float))


class svga3d_set_material(Record):
    _fields_ = (("cid", _c.c_uint32), ("face", _c.c_uint32), ("material", svga3d_material))


class svga3d_light(Record):
    _fields_ = (
        ("type", _c.c_uint32), ("in_world_space", _c.c_uint32), ("diffuse", svga3d_color4), ("specular", svga3d_color4),
        ("ambient", svga3d_color4), ("position", _c.c_float * 4), ("direction", _c.c_float * 4), ("range", _c.c_float),
        ("falloff", _c.c_float), ("attenuation0", _c.c_float), ("attenuation1", _c.c_float),
        ("attenuation2", _c.c_float), ("theta", _c.c_float), ("phi", _c.c_float))


class svga3d_set_light_data(Record):
    _fields_ = (("cid", _c.c_uint32), ("index", _c.c_uint32), ("light", svga3d_light))


class svga3d_set_light_enabled(Record):
    _fields_ = (("cid", _c.c_uint32), ("index", _c.c_uint32), ("enabled", _c.c_uint32))


class svga3d_set_viewport(Record):
    _fields_ = (("cid", _c.c_uint32), ("rect", svga3d_rect))


class svga3d_set_clip_plane(Record):
    _fields_ = (("cid", _c.c_uint32), ("index", _c.c_uint32), ("plane", _c.c_float * 4))


class svga3d_clear(Record):
    _fields_ = (
        ("cid", _c.c_uint32), ("flags", _c.c_uint32), ("color", _c.c_uint32), ("depth", _c.c_float),
        ("stencil", _c.c_uint32))


class svga3d_present(Record):
    _fields_ = (("sid", _c.c_uint32),)


class svga3d_shader_define(Record):
    _fields_ = (("cid", _c.c_uint32), ("shid", _c.c_uint32), ("type", _c.c_uint32))


class svga3d_shader_destroy(Record):
    _fields_ = (("cid", _c.c_uint32), ("shid", _c.c_uint32), ("type", _c.c_uint32))


class svga3d_set_shader(Record):
    _fields_ = (("cid", _c.c_uint32), ("type", _c.c_uint32), ("shid", _c.c_uint32))


class svga3d_set_shader_const(Record):
    _fields_ = (
        ("cid", _c.c_uint32), ("reg", _c.c_uint32), ("type", _c.c_uint32), ("constant_type", _c.c_uint32),
        ("values", _c.c_uint32 * 4))


class svga3d_draw_primitives(Record):
    _fields_ = (("cid", _c.c_uint32), ("declarations", _c.c_uint32), ("ranges", _c.c_uint32))


class svga3d_vertex_declaration(Record):
    _fields_ = (
        ("type", _c.c_uint32), ("method", _c.c_uint32), ("usage", _c.c_uint32), ("usage_index", _c.c_uint32),
        ("array", svga3d_array), ("first_hint", _c.c_uint32), ("last_hint", _c.c_uint32))


class svga3d_primitive_range(Record):
    _fields_ = (
        ("primitive_type", _c.c_uint32), ("primitive_count", _c.c_uint32), ("index_array", svga3d_array),
        ("index_width", _c.c_uint32), ("index_bias", _c.c_int32))


class svga3d_set_scissor_rect(Record):
    _fields_ = (("cid", _c.c_uint32), ("rect", svga3d_rect))


class svga3d_begin_query(Record):
    _fields_ = (("cid", _c.c_uint32), ("type", _c.c_uint32))


class svga3d_query(Record):
    _fields_ = (("cid", _c.c_uint32), ("type", _c.c_uint32), ("result", svga_guest_pointer))


class svga3d_query_result(Record):
    _fields_ = (("total_size", _c.c_uint32), ("state", _c.c_uint32), ("result", _c.c_uint32))


class svga3d_blit_to_screen(Record):
    _fields_ = (
        ("source", svga3d_image), ("source_rect", svga3d_signed_rect), ("screen_id", _c.c_uint32),
        ("destination_rect", svga3d_signed_rect))


class kalix_connection(Record):
    _fields_ = ()


class kalix_dma_buffer(Record):
    _fields_ = (
        ("data", _c.c_void_p), ("size", _c.c_uint32), ("handle", _c.c_uint32), ("gmr_id", _c.c_uint32),
        ("gmr_offset", _c.c_uint32), ("mapping", _c.c_void_p), ("mapping_bytes", _c.c_size_t))


class kalix_commands(Record):
    _fields_ = (("memory", _c.c_void_p), ("capacity", _c.c_uint32), ("used", _c.c_uint32))


class kalix_surface_description(Record):
    _fields_ = (
        ("flags", _c.c_uint32), ("format", _c.c_uint32), ("mip_levels", _c.c_uint32 * SVGA3D_FACES),
        ("sizes", _c.POINTER(surface_size)), ("size_count", _c.c_uint32), ("shared", _c.c_uint32), ("sid", _c.c_uint32))


class kalix_readback_area(Record):
    _fields_ = (
        ("sid", _c.c_uint32), ("surface_width", _c.c_uint32), ("surface_height", _c.c_uint32), ("format", _c.c_uint32),
        ("x", _c.c_uint32), ("y", _c.c_uint32), ("width", _c.c_uint32), ("height", _c.c_uint32))


class kalix_cursor_image(Record):
    _fields_ = (
        ("width", _c.c_uint32), ("height", _c.c_uint32), ("hotspot_x", _c.c_uint32), ("hotspot_y", _c.c_uint32),
        ("pixels", _c.POINTER(_c.c_uint32)))


# Each function's result, and its parameters' names and types.
FUNCTIONS = {
    "kalix_version": (_c.c_char_p, []),
    "kalix_open": (_c.c_int, [("run_dir", _c.c_char_p), ("connection", _c.POINTER(_c.POINTER(kalix_connection)))]),
    "kalix_explain_open": (_c.c_int, [
        ("run_dir", _c.c_char_p), ("error", _c.c_int), ("text", _c.c_char_p), ("room", _c.c_size_t)]),
    "kalix_close": (None, [("connection", _c.POINTER(kalix_connection))]),
    "kalix_connection_error": (_c.c_int, [("connection", _c.POINTER(kalix_connection))]),
    "kalix_disconnect": (_c.c_int, [("connection", _c.POINTER(kalix_connection))]),
    "kalix_request": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("command", _c.c_int32), ("payload", _c.c_void_p),
        ("payload_bytes", _c.c_uint32), ("reply", _c.c_void_p), ("reply_room", _c.c_uint32),
        ("reply_bytes", _c.POINTER(_c.c_uint32)), ("status", _c.POINTER(_c.c_int32))]),
    "kalix_getparam": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("param", _c.c_uint32), ("value", _c.POINTER(_c.c_uint64))]),
    "kalix_fifomap": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("index", _c.c_uint32), ("value", _c.POINTER(_c.c_uint32))]),
    "kalix_fifomap_caps": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("caps", _c.POINTER(fifomap_caps_rep))]),
    "kalix_software_mode": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("software_mode", _c.POINTER(_c.c_uint32))]),
    "kalix_dmabuf_alloc": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("size", _c.c_uint32), ("buffer", _c.POINTER(kalix_dma_buffer))]),
    "kalix_dmabuf_unref": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("buffer", _c.POINTER(kalix_dma_buffer))]),
    "kalix_dmabuf_unmap": (None, [("buffer", _c.POINTER(kalix_dma_buffer))]),
    "kalix_context_define": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("cid", _c.POINTER(_c.c_uint32))]),
    "kalix_context_destroy": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("cid", _c.c_uint32)]),
    "kalix_command_buffer": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("number", _c.c_uint32),
        ("commands", _c.POINTER(_c.POINTER(kalix_commands)))]),
    "kalix_submit": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("number", _c.c_uint32), ("fence", _c.POINTER(_c.c_uint32))]),
    "kalix_execbuf": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("number", _c.c_uint32), ("byte_count", _c.c_uint32),
        ("delay_us", _c.c_uint32), ("reply", _c.POINTER(execbuf_rep))]),
    "kalix_fence_wait": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("fence", _c.c_uint32)]),
    "kalix_fence_signalled": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("fence", _c.c_uint32), ("signalled", _c.POINTER(_c.c_int)),
        ("passed", _c.POINTER(_c.c_uint32))]),
    "kalix_fence_unref": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("fence", _c.c_uint32)]),
    "kalix_surface_define": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("description", _c.POINTER(kalix_surface_description)),
        ("sid", _c.POINTER(_c.c_uint32))]),
    "kalix_surface_define_2d": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("flags", _c.c_uint32), ("format", _c.c_uint32),
        ("width", _c.c_uint32), ("height", _c.c_uint32), ("sid", _c.POINTER(_c.c_uint32))]),
    "kalix_surface_destroy": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32)]),
    "kalix_surface_reference": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32),
        ("information", _c.POINTER(surface_reference_req))]),
    "kalix_alloc_sid": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("sid", _c.POINTER(_c.c_uint32))]),
    "kalix_readback_pixel_bytes": (_c.c_uint32, [("format", _c.c_uint32)]),
    "kalix_readback": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("area", _c.POINTER(kalix_readback_area)),
        ("pixels", _c.c_void_p), ("row_stride", _c.c_size_t)]),
    "kalix_present": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32), ("x", _c.c_int32), ("y", _c.c_int32),
        ("width", _c.c_int32), ("height", _c.c_int32)]),
    "kalix_present_phys": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32), ("x", _c.c_uint32), ("y", _c.c_uint32),
        ("width", _c.c_uint32), ("height", _c.c_uint32), ("phys_addr", _c.c_uint64)]),
    "kalix_overlay_define": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("overlay", _c.POINTER(overlay_define_req)),
        ("id", _c.POINTER(_c.c_uint32))]),
    "kalix_overlay_destroy": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("id", _c.c_uint32)]),
    "kalix_overlay_visible": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("id", _c.c_uint32), ("visible", _c.c_uint32)]),
    "kalix_oob_present": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("overlay_id", _c.c_uint32)]),
    "kalix_svga_enable": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("enable", _c.c_uint32)]),
    "kalix_set_mode": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("width", _c.c_uint32), ("height", _c.c_uint32),
        ("bits_per_pixel", _c.c_uint32)]),
    "kalix_set_cursor": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("image", _c.POINTER(kalix_cursor_image))]),
    "kalix_move_cursor": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("visible", _c.c_uint32), ("x", _c.c_uint32),
        ("y", _c.c_uint32)]),
    "kalix_debug_show": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32)]),
    "kalix_debug_reset": (_c.c_int, [("connection", _c.POINTER(kalix_connection))]),
    "kalix_debug_info": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("information", _c.POINTER(sid_info_req))]),
    "kalix_debug_list": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("list", _c.POINTER(list_sids_req))]),
    "kalix_debug_dump": (_c.c_int, [("connection", _c.POINTER(kalix_connection)), ("dump", _c.POINTER(dump_sid_req))]),
    "kalix_debug_fill": (_c.c_int, [
        ("connection", _c.POINTER(kalix_connection)), ("sid", _c.c_uint32), ("pixel", _c.c_uint32)]),
    "kalix_cmd_update": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("x", _c.c_uint32), ("y", _c.c_uint32), ("width", _c.c_uint32),
        ("height", _c.c_uint32)]),
    "kalix_cmd_surface_define": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("surface", _c.POINTER(svga3d_surface_define)),
        ("sizes", _c.POINTER(svga3d_size)), ("size_count", _c.c_uint32)]),
    "kalix_cmd_surface_destroy": (_c.c_int, [("list", _c.POINTER(kalix_commands)), ("sid", _c.c_uint32)]),
    "kalix_cmd_surface_copy": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("source", _c.POINTER(svga3d_image)),
        ("destination", _c.POINTER(svga3d_image)), ("boxes", _c.POINTER(svga3d_copy_box)), ("box_count", _c.c_uint32)]),
    "kalix_cmd_surface_stretchblt": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("blit", _c.POINTER(svga3d_surface_stretchblt))]),
    "kalix_cmd_surface_dma": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("transfer", _c.POINTER(svga3d_surface_dma)),
        ("boxes", _c.POINTER(svga3d_copy_box)), ("box_count", _c.c_uint32),
        ("suffix", _c.POINTER(svga3d_surface_dma_suffix))]),
    "kalix_cmd_context_define": (_c.c_int, [("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32)]),
    "kalix_cmd_context_destroy": (_c.c_int, [("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32)]),
    "kalix_cmd_set_transform": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32),
        ("matrix", _c.POINTER(_c.c_float))]),
    "kalix_cmd_set_z_range": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("min", _c.c_float), ("max", _c.c_float)]),
    "kalix_cmd_set_render_states": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("states", _c.POINTER(svga3d_render_state_value)),
        ("count", _c.c_uint32)]),
    "kalix_cmd_set_render_target": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32),
        ("target", _c.POINTER(svga3d_image))]),
    "kalix_cmd_set_texture_states": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32),
        ("states", _c.POINTER(svga3d_texture_state_value)), ("count", _c.c_uint32)]),
    "kalix_cmd_set_material": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("face", _c.c_uint32),
        ("material", _c.POINTER(svga3d_material))]),
    "kalix_cmd_set_light_data": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("index", _c.c_uint32),
        ("light", _c.POINTER(svga3d_light))]),
    "kalix_cmd_set_light_enabled": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("index", _c.c_uint32), ("enabled", _c.c_uint32)]),
    "kalix_cmd_set_viewport": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("rect", _c.POINTER(svga3d_rect))]),
    "kalix_cmd_set_clip_plane": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("index", _c.c_uint32),
        ("plane", _c.POINTER(_c.c_float))]),
    "kalix_cmd_clear": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("flags", _c.c_uint32), ("color", _c.c_uint32),
        ("depth", _c.c_float), ("stencil", _c.c_uint32), ("rects", _c.POINTER(svga3d_rect)),
        ("rect_count", _c.c_uint32)]),
    "kalix_cmd_present": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("sid", _c.c_uint32), ("rects", _c.POINTER(svga3d_copy_rect)),
        ("rect_count", _c.c_uint32)]),
    "kalix_cmd_shader_define": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("shader", _c.c_uint32), ("type", _c.c_uint32),
        ("tokens", _c.POINTER(_c.c_uint32)), ("token_count", _c.c_uint32)]),
    "kalix_cmd_shader_destroy": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("shader", _c.c_uint32), ("type", _c.c_uint32)]),
    "kalix_cmd_set_shader": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32), ("shader", _c.c_uint32)]),
    "kalix_cmd_set_shader_const": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("constant", _c.POINTER(svga3d_set_shader_const))]),
    "kalix_cmd_draw_primitives": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32),
        ("declarations", _c.POINTER(svga3d_vertex_declaration)), ("declaration_count", _c.c_uint32),
        ("ranges", _c.POINTER(svga3d_primitive_range)), ("range_count", _c.c_uint32),
        ("divisors", _c.POINTER(_c.c_uint32))]),
    "kalix_cmd_set_scissor_rect": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("rect", _c.POINTER(svga3d_rect))]),
    "kalix_cmd_begin_query": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32)]),
    "kalix_cmd_end_query": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32),
        ("result", svga_guest_pointer)]),
    "kalix_cmd_wait_for_query": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("cid", _c.c_uint32), ("type", _c.c_uint32),
        ("result", svga_guest_pointer)]),
    "kalix_cmd_present_readback": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("rects", _c.POINTER(svga3d_rect)), ("rect_count", _c.c_uint32)]),
    "kalix_cmd_blit_surface_to_screen": (_c.c_int, [
        ("list", _c.POINTER(kalix_commands)), ("blit", _c.POINTER(svga3d_blit_to_screen)),
        ("clips", _c.POINTER(svga3d_signed_rect)), ("clip_count", _c.c_uint32)]),
}
