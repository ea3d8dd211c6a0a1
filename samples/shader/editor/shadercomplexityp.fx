// The shader complexity view (fill mode 7): every pixel of the scene in the
// colour of what its own shaders cost. The render system fills
// NormalizedComplexity before each draw:
//   x  the instruction slots of the stage under study (pixel or vertex, as
//      the editor chooses), divided by the most it allows
//   y  the vertex stage's slots, divided alike
//   z  0.03125, w  1.0
// Cheap is green, half the budget yellow, the whole budget and above red.
// Written for every HLSL compiler the engine meets: clamp, not saturate.

float4 NormalizedComplexity;

void ps(out float4 oColor : COLOR0)
{
    float cost = clamp(NormalizedComplexity.x, 0.0, 1.0);
    float firstHalf = clamp(cost * 2.0, 0.0, 1.0);
    float secondHalf = clamp(cost * 2.0 - 1.0, 0.0, 1.0);
    float3 cheap = float3(0.0, 0.6, 0.0);
    float3 middle = float3(1.0, 0.8, 0.0);
    float3 whole = float3(1.0, 0.0, 0.0);
    oColor = float4(lerp(lerp(cheap, middle, firstHalf), whole, secondHalf), NormalizedComplexity.w);
}
