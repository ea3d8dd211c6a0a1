#pragma once
#include <vector>

#include "geometry/BoundingBox.h"
#include "geometry/BoundingSphere.h"
#include "geometry/Circle.h"
#include "geometry/Matrix4.h"
#include "geometry/Plane.h"
#include "geometry/Ray.h"
#include "geometry/RayHit.h"
#include "geometry/Segment.h"
#include "geometry/Vector2.h"
#include "geometry/Vector3.h"

namespace kv
{

// Stand-alone intersection and containment tests. The several ray-box forms are not
// interchangeable: they differ in what they return, in their tolerances and in how they
// treat an origin inside the box. A null box misses every box test; an infinite box hits
// every one at distance 0.

// The box: a centre, three unit axes and a half length along each. An origin inside gives
// the exit distance.
bool IntersectRayOrientedBox(const Ray& ray, const Vector3& centre, const Vector3& axis0, const Vector3& axis1,
                             const Vector3& axis2, float half0, float half1, float half2, float& t);
// Nearest face; an origin strictly inside hits at 0.
RayHit IntersectRayBox(const Ray& ray, const BoundingBox& box);
// Entry and exit distances; either pointer may be null.
bool IntersectRayBoxInterval(const Ray& ray, const BoundingBox& box, float* d1, float* d2);
// The box lives in transform's frame, its corners scaled per axis; the direction is
// normalised first, so the distance is in world units.
RayHit IntersectRayScaledOrientedBox(const Ray& ray, const BoundingBox& box, const Matrix4& transform, float scaleX,
                                     float scaleY, float scaleZ);
RayHit IntersectRayPlane(const Ray& ray, const Plane& plane);
// The planes bound a convex volume; normalIsOutside tells which side is out.
RayHit IntersectRayPlanes(const Ray& ray, const std::vector<Plane>& planes, bool normalIsOutside);
RayHit IntersectRayPlanes(const Ray& ray, const Plane* planes, int count, bool normalIsOutside);
RayHit IntersectRaySphere(const Ray& ray, const BoundingSphere& sphere, bool discardInside = true);
RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal,
                            bool positiveSide = true, bool negativeSide = true);
RayHit IntersectRayTriangle(const Ray& ray, const Vector3& a, const Vector3& b, const Vector3& c,
                            bool positiveSide = true, bool negativeSide = true);

bool SphereTouchesBox(const BoundingSphere& sphere, const BoundingBox& box);
bool SphereTouchesPlane(const BoundingSphere& sphere, const Plane& plane);
bool PlaneCutsBox(const Plane& plane, const BoundingBox& box);
// Only x and y of the vertices are read.
bool PointInPolygon2D(const Vector3* vertices, int count, const Vector2& point);
// Against each edge's whole line, not just the segment.
bool CircleTouchesPolygon2D(const Vector3* vertices, int count, const Circle& circle);
bool PointInTriangle2D(const Vector2& p, const Vector2& a, const Vector2& b, const Vector2& c);
bool PointInTriangle3D(const Vector3& p, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& normal);
// Both ends strictly inside.
bool SphereContainsSegment(const BoundingSphere& sphere, const Segment& segment);
bool RayPassesNearSegment(const Ray& ray, const Vector3& p0, const Vector3& p1, float radius);

} // namespace kv
