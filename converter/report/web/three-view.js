// The parts of three.js the report's 3D view uses, bundled by install.sh into one classic script
// (global KNR_THREE) that the page inlines: three.js ships only as ES modules.
export {
  BufferAttribute,
  BufferGeometry,
  Color,
  LineBasicMaterial,
  LineSegments,
  Line,
  PerspectiveCamera,
  Points,
  PointsMaterial,
  Scene,
  Vector2,
  WebGLRenderer,
} from 'three';
