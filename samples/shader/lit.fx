// The lit surface of the samples: a material colour lit by an ambient term and
// up to four directional lights, per pixel, with optional linear fog, a colour
// per vertex and hardware instancing. Its switches come in as #define lines in
// front of this text (see lit.ini and README.md beside it):
//   LIGHT_COUNT    0 to 4, the number of directional lights
//   FOG            fog by the distance along the view
//   VERTEX_COLOUR  a colour per vertex, multiplied into the material colour
//   INSTANCING     the world transform per instance, in TEXCOORD1 to TEXCOORD3
// Both stages live in this one file: the vertex stage is "vs", the pixel stage
// "ps". It keeps to what every HLSL compiler the engine meets compiles: N.L is
// written as mul(n, l), and nothing samples a texture.

#ifndef LIGHT_COUNT
#define LIGHT_COUNT 0
#endif

float4x4 viewProjection;
#ifndef INSTANCING
float4x4 world;
#endif
float4 materialColour;
float4 ambientColour;
// Directions point towards the lights, in world space, of unit length.
float4 lightDirections[4];
float4 lightColours[4];
#ifdef FOG
float4 fogColour;
// x: the distance where fog begins, y: 1 / (end - begin).
float4 fogRange;
#endif

struct VertexInput
{
    float4 position : POSITION0;
    float3 normal : NORMAL0;
#ifdef VERTEX_COLOUR
    float4 colour : COLOR0;
#endif
#ifdef INSTANCING
    // The rows of a 3x4 world transform.
    float4 worldRow0 : TEXCOORD1;
    float4 worldRow1 : TEXCOORD2;
    float4 worldRow2 : TEXCOORD3;
#endif
};

// The fog amount rides in the normal's w: Wine's compiler gives a third pixel
// input the register of the first.
struct VertexOutput
{
    float4 position : POSITION;
    float4 colour : COLOR0;
    float4 normalFog : TEXCOORD0;
};

struct PixelInput
{
    float4 colour : COLOR0;
    float4 normalFog : TEXCOORD0;
};

VertexOutput vs(VertexInput input)
{
    VertexOutput output;
#ifdef INSTANCING
    float4 p = float4(mul(input.worldRow0, input.position), mul(input.worldRow1, input.position),
                      mul(input.worldRow2, input.position), 1.0);
    float3 n = float3(mul(input.worldRow0.xyz, input.normal), mul(input.worldRow1.xyz, input.normal),
                      mul(input.worldRow2.xyz, input.normal));
#else
    float4 p = mul(input.position, world);
    float3 n = mul(float4(input.normal, 0.0), world).xyz;
#endif
    output.position = mul(p, viewProjection);
    output.colour = materialColour;
#ifdef VERTEX_COLOUR
    output.colour = output.colour * input.colour;
#endif
#ifdef FOG
    output.normalFog = float4(n, clamp((output.position.w - fogRange.x) * fogRange.y, 0.0, 1.0));
#else
    output.normalFog = float4(n, 0.0);
#endif
    return output;
}

float4 ps(PixelInput input) : COLOR0
{
    float3 n = input.normalFog.xyz;
    float3 light = ambientColour.rgb;
#if LIGHT_COUNT > 0
    light = light + lightColours[0].rgb * max(mul(n, lightDirections[0].xyz), 0.0);
#endif
#if LIGHT_COUNT > 1
    light = light + lightColours[1].rgb * max(mul(n, lightDirections[1].xyz), 0.0);
#endif
#if LIGHT_COUNT > 2
    light = light + lightColours[2].rgb * max(mul(n, lightDirections[2].xyz), 0.0);
#endif
#if LIGHT_COUNT > 3
    light = light + lightColours[3].rgb * max(mul(n, lightDirections[3].xyz), 0.0);
#endif
    float4 colour = float4(input.colour.rgb * light, input.colour.a);
#ifdef FOG
    colour.rgb = lerp(colour.rgb, fogColour.rgb, input.normalFog.w);
#endif
    return colour;
}
