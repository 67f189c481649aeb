// The probe: the linear values under the cursor, one channel or a layer
// at a time, the frame's windows, gamma and the colour configuration's displays.
// Its names stay inside; page.js adds probeQuery(), the picture's query
// besides exposure, to every picture it asks for.
const probeQuery=(()=>{
let channel='rgb',plate=null,pointer=null,reading=false;
const displays=[];  // [display, view] pairs; index 0 is the built-in sRGB
function look(){const d=displays[+$('display').value];
  return '&channel='+channel+'&gamma='+(+$('gamma').value||1)+'&layer='+encodeURIComponent($('aov').value||'RGBA')+
    (d?'&display='+encodeURIComponent(d[0])+'&view='+encodeURIComponent(d[1]):'')}
function showChannel(c){channel=c;$('channel').value=c;$('chan').hidden=c=='rgb';$('chan').textContent=c.toUpperCase();refresh()}
$('channel').onchange=e=>showChannel(e.target.value);
$('gamma').onchange=()=>refresh();$('display').onchange=()=>refresh();
// Proxies hold the frame's own RGBA: a layer is shown at full resolution.
$('aov').onchange=e=>{const frame=e.target.value=='RGBA';$('proxy').disabled=!frame;
  if(!frame){proxy=1;$('proxy').value=1}refresh();readout()};
// r g b a y show that channel as grey (y: luminance); the same key again, the colour.
document.addEventListener('keydown',e=>{const t=e.target;
  if(e.ctrlKey||e.altKey||e.metaKey||t.matches('input:not([type=range]):not([type=checkbox]),select,textarea'))return;
  if('rgbay'.includes(e.key)&&e.key.length==1)showChannel(channel==e.key?'rgb':e.key)});

// Windows, drawn over the picture in its own pixels: source pixel (0, 0) is
// the file's plate.pixels[0], [1].
const svg=(tag,props)=>{const e=document.createElementNS('http://www.w3.org/2000/svg',tag);for(const k in props)e.setAttribute(k,props[k]);return e};
const frameBox=svg('svg',{id:'windows'});$('layer').append(frameBox);
// Lines one and a half screen pixels wide at any zoom.
new MutationObserver(()=>frameBox.style.setProperty('--px',1/sc)).observe($('layer'),{attributes:true,attributeFilter:['style']});
$('windowsOn').onclick=()=>{frameBox.style.display=$('windowsOn').classList.toggle('on')?'':'none'};
const box=(w,cls)=>svg('rect',{class:cls,x:w[0]-plate.pixels[0],y:w[1]-plate.pixels[1],width:w[2],height:w[3]});
const text=w=>w[0]+','+w[1]+' '+w[2]+'×'+w[3];
async function loadPlate(){plate=await (await api('/api/plate')).json();
  const [,,w,h]=plate.pixels;frameBox.setAttribute('viewBox','0 0 '+w+' '+h);frameBox.style.width=w+'px';frameBox.style.height=h+'px';
  frameBox.replaceChildren(box(plate.dataWindow,'data'),box(plate.displayWindow,'display'));
  $('windowText').textContent='display '+text(plate.displayWindow)+' · data '+text(plate.dataWindow);
  if($('aov').options.length!=plate.layers.length){$('aov').replaceChildren(...plate.layers.map(n=>el('option',{value:n,textContent:n})));
    $('aovPick').hidden=plate.layers.length<2}
  if(!displays.length){displays.push(null,...plate.displays.flatMap(d=>d.views.map(v=>[d.display,v])));
    $('display').replaceChildren(...displays.map((d,i)=>el('option',{value:i,textContent:d?d.join(' / '):'sRGB'})))}}

// Readout: one request at a time, for the newest place the cursor rests on.
// Output values come from the full-resolution render, so they wait while a proxy is shown.
const f32=v=>{if(typeof v!='number')return v;for(let p=1;p<9;p++){const t=+v.toPrecision(p);if(Math.fround(t)===v)return String(t)}return String(v)};
async function readout(){if(reading||!pointer||!plate)return;reading=true;const at=pointer;
  try{const [x0,y0,w,h]=plate.pixels,x=x0+Math.floor((at[0]-tx)/sc),y=y0+Math.floor((at[1]-ty)/sc);
    const rows=[['',...'RGBA']];
    if(x>=x0&&y>=y0&&x<x0+w&&y<y0+h){const q='/api/pixels?x='+x+'&y='+y+'&layer='+encodeURIComponent($('aov').value||'RGBA')+'&which=';
      rows.push(['in',...(await (await api(q+'input')).json()).pixels[0].map(f32)]);
      rows.push(($('view').dataset.proxy||1)==1?['out',...(await (await api(q+'output')).json()).pixels[0].map(f32)]:['out','(full resolution next)']);
      $('pixelAt').textContent='x '+x+' y '+y}
    else $('pixelAt').textContent='x '+x+' y '+y+' (outside the image)';
    $('values').replaceChildren(...rows.map(r=>el('tr',{},...r.map(v=>el('td',{textContent:v})))))}
  catch(e){$('pixelAt').textContent=e.message}
  reading=false;if(pointer!==at)readout()}
$('stage').addEventListener('pointermove',e=>{const b=$('stage').getBoundingClientRect();pointer=[e.clientX-b.left,e.clientY-b.top];readout()});
// A new picture: another frame may have other windows, and the values under the cursor changed.
$('view').addEventListener('load',()=>{if(!plate||plate.frame!=tool.frame)loadPlate().then(readout,e=>err(e.message));else readout()});
return look})();
