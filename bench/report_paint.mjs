// Writes a run report of TAKES synthetic one-minute takes (120 frames a second, JOINTS joints,
// every series and the 3D view's data sized as the converter writes them) and measures, in
// headless Chromium, when the page first paints and when every take is drawn.
//
// usage: node report_paint.mjs WRITER WEB_DIR WORK_DIR [TAKES] [JOINTS]
import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';

const [writer, webDir, workDir] = process.argv.slice(2, 5).map((a) => resolve(a));
const TAKES = Number(process.argv[5] || 100), JOINTS = Number(process.argv[6] || 40);
const FRAMES = 7200, RATE = 120, CLIP_BYTES = 320 * 1024, BUDGET = 2400;
const { chromium } = createRequire(join(webDir, 'package.json'))('playwright-core');

// Joint j of a figure at frame f: a walk along x with limbs swinging.
function joint(f, j) {
  const s = Math.sin((2 * Math.PI * f) / RATE + j);
  return [f * 1.2 + s * (j % 7), 100 - (j % 10) * 9 + Math.abs(s) * 4, (j - JOINTS / 2) * 2];
}
function clip(first, count, step) {
  const values = [];
  for (let i = 0; i < count; i++) for (let j = 0; j < JOINTS; j++) values.push(...joint(first + i * step, j));
  const unit = Math.max(...values.map(Math.abs)) / 32767;
  const ints = Int16Array.from(values, (v) => Math.round(v / unit));
  return { first, step, count, unit, made: true, positions: Buffer.from(ints.buffer).toString('base64') };
}
function take(name) {
  let step = 1;
  while (Math.ceil(((Math.floor((FRAMES - 1) / step) + 1) * JOINTS * 6) / 3) * 4 > CLIP_BYTES) step++;
  // Plot series as the converter writes them: thinned to the point budget.
  const n = BUDGET, frames = [], heel = { LeftFoot: [], RightFoot: [] }, speed = { LeftFoot: [], RightFoot: [] };
  const x = [], z = [], contacts = { LeftFoot: [], RightFoot: [] };
  for (let i = 0; i < n; i++) {
    const f = Math.round((i * (FRAMES - 1)) / (n - 1));
    frames.push(f);
    for (const [foot, ph] of [['LeftFoot', 0], ['RightFoot', Math.PI]]) {
      heel[foot].push(+(Math.max(0, Math.sin((2 * Math.PI * f) / RATE + ph)) * 12 + 0.4).toFixed(3));
      speed[foot].push(+(Math.abs(Math.cos((2 * Math.PI * f) / RATE + ph)) * 150).toFixed(2));
    }
    x.push(f * 1.2); z.push(Math.sin(f / 2000) * 50);
  }
  for (let c = 0; c < FRAMES / RATE; c++) {
    contacts.LeftFoot.push([c * RATE + 60, c * RATE + 119]);
    contacts.RightFoot.push([c * RATE, c * RATE + 59]);
  }
  const seam = { channel: 'Hips', frames: [], before: [], after: [] };
  for (let p = 0; p < 2; p++) for (let k = 0; k <= 120; k++) {
    seam.frames.push(k); seam.before.push(Math.sin(k / 20) * 10 + k / 20); seam.after.push(Math.sin(k / 20) * 10);
  }
  return {
    take: name, status: 'ok', frames: FRAMES, frameTime: 1 / RATE, joints: JOINTS, cog: 'Hips',
    conditioning: { changed: false, notes: [], units: 'centimetres' },
    feet: [{ joint: 'LeftFoot', found: 'name' }, { joint: 'RightFoot', found: 'name' }],
    skill: 'Locomotion', threshold: 0.2, contacts, distance: 8640, headingChange: 3,
    loop: { start: 120, end: 240, foot: 'LeftFoot', seamBefore: 3, seamAfter: 0.2 },
    warnings: [], seconds: { total: 2 },
    plots: { frames, heel, speed, heightLimit: { LeftFoot: 1.7, RightFoot: 1.7 }, path: { x, z }, seam },
    view: { frameTime: 1 / RATE, parents: Array.from({ length: JOINTS }, (_, j) => (j ? (j - 1) >> 1 : -1)),
            feet: [{ name: 'LeftFoot', joint: JOINTS - 2 }, { name: 'RightFoot', joint: JOINTS - 1 }],
            skill: clip(0, Math.floor((FRAMES - 1) / step) + 1, step), loop: clip(120, 121, 1) },
  };
}

rmSync(workDir, { recursive: true, force: true });
mkdirSync(workDir, { recursive: true });
for (let i = 0; i < TAKES; i++) {
  writeFileSync(join(workDir, `take${String(i).padStart(3, '0')}.json`), JSON.stringify(take(`take${i}`)));
}
execFileSync(writer, [workDir], { stdio: 'inherit' });
const reportFile = join(workDir, 'report.html');
const bytes = statSync(reportFile).size;

const profile = mkdtempSync(join(tmpdir(), 'knr-paint-'));
const context = await chromium.launchPersistentContext(profile, {
  executablePath: '/usr/bin/chromium', headless: true, viewport: { width: 1280, height: 900 },
  args: ['--headless', '--no-sandbox', '--disable-gpu', '--use-angle=swiftshader', '--enable-unsafe-swiftshader'],
});
try {
  const runs = [];
  for (let run = 0; run < 3; run++) {
    const page = await context.newPage();
    await page.goto(pathToFileURL(reportFile).href);
    await page.waitForSelector('html[data-drawn="yes"]', { timeout: 300000 });
    const screen = await page.evaluate(() => window.reportDrawn.ms);
    await page.waitForSelector('html[data-drawn-all="yes"]', { timeout: 300000 });
    runs.push(await page.evaluate(() => {
      const paint = performance.getEntriesByName('first-contentful-paint')[0] ||
                    performance.getEntriesByName('first-paint')[0];
      return { paint: paint ? paint.startTime : NaN, all: window.reportDrawn.ms, views: window.reportDrawn.views };
    }));
    runs[runs.length - 1].screen = screen;
    await page.close();
  }
  const median = (k) => runs.map((r) => r[k]).sort((a, b) => a - b)[1];
  console.log(`report_paint: ${TAKES} takes of ${FRAMES} frames, ${JOINTS} joints: page ${(bytes / 1e6).toFixed(1)} MB, ` +
              `${(bytes / TAKES / 1e3).toFixed(0)} KB a take`);
  console.log(`report_paint: first paint ${median('paint').toFixed(0)} ms, first screen drawn ` +
              `${median('screen').toFixed(0)} ms (medians of 3); every take drawn ` +
              `(${runs[0].views} 3D views) ${median('all').toFixed(0)} ms after navigation start`);
} finally {
  await context.close();
  rmSync(profile, { recursive: true, force: true });
}
