// Live while dragging: a slider dragged, or a number scrubbed by dragging its
// label sideways, sends its value as it goes. One value is in flight at a
// time, with its render: values that come meanwhile wait, and only the newest
// is sent once its picture is shown (a proxy, with one chosen). When the hand
// rests the full resolution follows, and at once when it lets go; a value sent
// meanwhile cancels that render at the server rather than wait behind it.
const [dragTo,dragEnd]=(()=>{
  const rest=150;  // ms without a move that count as resting
  let held=null,sending=null,restTimer=0,moved=0;
  function to(c,value){controlHeld=true;moved=performance.now();held={id:c.id,value};
    const f=document.querySelector('#controls .row[data-id="'+c.id+'"] input[type=number]');if(f)f.value=value;
    clearTimeout(restTimer);restTimer=setTimeout(rested,rest);sending=sending||send()}
  async function send(){
    while(held){const h=held;held=null;
      try{tool=await (await api('/api/set',h)).json();err()}catch(e){err(e.message)}
      wantFull=false;await refresh()}
    sending=null;if(controlHeld&&performance.now()-moved>=rest)rested()}
  // A value still on its way is left to the loop, which looks again when done.
  function rested(){if(!sending){wantFull=true;refresh()}}
  // Through `set`, as a click is: the controls are drawn again and the full resolution asked for.
  async function end(c,value){clearTimeout(restTimer);controlHeld=false;await sending;set(c.id,value,true)}
  // Across the slider's width, the label moves the value as the slider would (its step and limits too).
  $('controls').addEventListener('pointerdown',e=>{const l=e.target.closest('.row>label'),
    s=l&&l.parentNode.querySelector('input[type=range]');if(!s)return;e.preventDefault();l.setPointerCapture(e.pointerId);
    const c=controls().find(c=>c.id==l.parentNode.dataset.id),x0=e.clientX,v0=+s.value,per=(s.max-s.min)/s.clientWidth;
    let v=v0;l.onpointermove=m=>{s.value=v0+(m.clientX-x0)*per;if(+s.value!=v)to(c,v=+s.value)};
    l.onpointerup=()=>{l.onpointermove=l.onpointerup=null;if(v!=v0)end(c,v)}});
  return [to,end]})();
